#include "convert/queue.h"

#include <gtest/gtest.h>

#include "support/sysroot.h"

namespace {

using convert::Item;
using convert::Queue;
using convert::State;

class ConversionQueue : public test::Sysroot {};

TEST_F(ConversionQueue, KeepsItsFilmsInTheirOrder) {
  {
    Queue queue;
    ASSERT_TRUE(queue.IsOpen());
    EXPECT_EQ(queue.Add("/films/b.mkv", "/films", "mp4"), 1);
    EXPECT_EQ(queue.Add("/films/a\xff.mkv", "/films", "mp4-720p"), 2);
  }
  const std::vector<Item> items = Queue().List();
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].path, "/films/b.mkv");
  EXPECT_EQ(items[1].path, "/films/a\xff.mkv") << "a name need not be valid text";
  EXPECT_EQ(items[1].profile, "mp4-720p");
  EXPECT_EQ(items[1].root, "/films");
  EXPECT_EQ(convert::NameOf(items[1].state), std::string("waiting"));
}

TEST_F(ConversionQueue, HasEachFilmOnceForEachProfile) {
  Queue queue;
  const auto first = queue.Add("/films/a.mkv", "/films", "mp4");
  EXPECT_EQ(queue.Add("/films/a.mkv", "/films", "mp4"), first);
  EXPECT_NE(queue.Add("/films/a.mkv", "/films", "mp4-480p"), first);
  Item failed = *queue.Find(*first);
  failed.state = State::kFailed;
  ASSERT_TRUE(queue.Update(failed));
  EXPECT_NE(queue.Add("/films/a.mkv", "/films", "mp4"), first) << "a failed one may be tried again";
}

TEST_F(ConversionQueue, GivesTheFilmThatHasBegunBeforeThoseThatWait) {
  Queue queue;
  queue.Add("/a", "/", "mp4");
  queue.Add("/b", "/", "mp4");
  queue.Add("/c", "/", "mp4");
  Item begun = *queue.Find(2);
  begun.state = State::kPaused;
  begun.folder = "/volume1/2";
  begun.seconds = 7;
  begun.reason = "because";
  ASSERT_TRUE(queue.Update(begun));
  const auto next = queue.Next({});
  ASSERT_TRUE(next);
  EXPECT_EQ(next->id, 2);
  EXPECT_EQ(next->folder, "/volume1/2");
  EXPECT_EQ(next->seconds, 7);
  EXPECT_EQ(next->reason, "because");
  EXPECT_EQ(queue.Next({2})->id, 1);
  EXPECT_FALSE(queue.Next({1, 2, 3}));
}

TEST_F(ConversionQueue, KeepsARemovedFilmUntilItsFilesAreGone) {
  Queue queue;
  const auto id = queue.Add("/a", "/", "mp4");
  Item item = *queue.Find(*id);
  EXPECT_TRUE(queue.Remove(*id));
  EXPECT_FALSE(queue.Remove(*id));
  EXPECT_TRUE(queue.List().empty());
  EXPECT_FALSE(queue.Find(*id));
  EXPECT_FALSE(queue.Next({}));
  item.state = State::kReady;
  queue.Update(item);
  EXPECT_EQ(queue.Removed().size(), 1U) << "an update does not bring it back";
  EXPECT_TRUE(queue.Forget(*id));
  EXPECT_TRUE(queue.Removed().empty());
  EXPECT_GT(queue.Add("/b", "/", "mp4"), *id) << "a number is never used twice";
}

TEST_F(ConversionQueue, RemembersThatTheOwnerHasPausedIt) {
  EXPECT_FALSE(Queue().IsPaused());
  EXPECT_TRUE(Queue().SetPaused(true));
  EXPECT_TRUE(Queue().IsPaused());
  EXPECT_TRUE(Queue().SetPaused(false));
  EXPECT_FALSE(Queue().IsPaused());
}

TEST_F(ConversionQueue, TellsTheProgressByItsPieces) {
  Item item;
  item.folder = Path("/volume1/work");
  item.seconds = 40;
  item.state = State::kConverting;
  EXPECT_EQ(convert::ProgressOf(item), 0);
  for (const char* name : {"slice-00000.ts", "slice-00001.ts", "slice-x.ts", "slice-.ts", "film"}) {
    Write(std::string("/volume1/work/") + name, "x");
  }
  EXPECT_EQ(convert::ProgressOf(item), 0.25);
  Write("/volume1/work/slice-00004.ts", "x");
  EXPECT_LT(convert::ProgressOf(item), 1) << "the result has not been checked";
  item.state = State::kReady;
  EXPECT_EQ(convert::ProgressOf(item), 1);
}

}  // namespace
