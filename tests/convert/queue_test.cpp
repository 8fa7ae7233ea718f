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

TEST_F(ConversionQueue, CountsTheFilmsOfAClientUntilTheyAreForgotten) {
  Queue queue;
  const auto add = [&](const char* client, const char* film) {
    return queue.AddFor(client, 2, film, "/", "mp4").value_or(-1);
  };
  const auto first = add("anna", "/a");
  EXPECT_GT(first, 0);
  EXPECT_GT(add("anna", "/b"), first);
  EXPECT_EQ(add("anna", "/c"), 0);
  EXPECT_EQ(queue.List().size(), 2U) << "nothing is left of the refused one";
  EXPECT_EQ(add("anna", "/a"), first) << "it is there already";
  EXPECT_GT(add("bob", "/c"), 0);
  EXPECT_EQ(add("bob", "/b"), 2) << "a film of another client counts for that one";
  EXPECT_GT(add("bob", "/d"), 0);
  ASSERT_TRUE(queue.Remove(first));
  EXPECT_EQ(add("anna", "/e"), 0) << "its files are not gone";
  ASSERT_TRUE(queue.Forget(first));
  EXPECT_GT(add("anna", "/e"), 0);
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

class ConversionRules : public ConversionQueue {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    rule_ = {*Queue().AddRule("/films", "mp4"), "/films", "mp4"};
  }
  const convert::Rule& Films() const { return rule_; }
  // Adds a film for the rule.
  void Choose(const std::string& path, const std::string& state = "1") const {
    EXPECT_TRUE(Queue().AddByRule(rule_, path, state));
  }
  static std::vector<std::string> Queued() {
    std::vector<std::string> paths;
    for (const Item& item : Queue().List()) {
      paths.push_back(item.path);
    }
    return paths;
  }

 private:
  convert::Rule rule_;
};

using Paths = std::vector<std::string>;

TEST_F(ConversionRules, AreKeptOnceForEachFolderAndProfile) {
  Queue queue;
  EXPECT_EQ(queue.AddRule("/films", "mp4"), Films().id);
  EXPECT_NE(queue.AddRule("/films", "mp4-480p"), Films().id);
  const auto rules = Queue().Rules();
  ASSERT_EQ(rules.size(), 2U);
  EXPECT_EQ(rules[0].folder, "/films");
  EXPECT_EQ(rules[1].profile, "mp4-480p");
}

TEST_F(ConversionRules, AddAFilmOnceForEachStateOfItsFile) {
  Choose("/films/a");
  Choose("/films/a");
  ASSERT_EQ(Queued(), Paths{"/films/a"});
  const Item item = Queue().List()[0];
  EXPECT_EQ(item.root, "/films");
  EXPECT_EQ(item.profile, "mp4");
  Queue().Remove(item.id);
  Choose("/films/a");
  EXPECT_EQ(Queued(), Paths{}) << "what was removed is not wanted";
  Choose("/films/a", "2");
  EXPECT_EQ(Queued(), Paths{"/films/a"}) << "another film of the same name";
}

TEST_F(ConversionRules, DoNotRepeatAConversionThatHasFailed) {
  Choose("/films/a");
  Item item = Queue().List()[0];
  item.state = State::kFailed;
  Queue().Update(item);
  Choose("/films/a");
  EXPECT_EQ(Queued().size(), 1U);
}

TEST_F(ConversionRules, TakeWithThemWhatStillWaits) {
  Choose("/films/a");
  Choose("/films/b");
  Item begun = Queue().List()[1];
  begun.state = State::kPaused;
  Queue().Update(begun);
  Queue().Add("/films/c", "/films", "mp4");
  EXPECT_TRUE(Queue().RemoveRule(Films().id));
  EXPECT_EQ(Queued(), (Paths{"/films/b", "/films/c"}));
  EXPECT_FALSE(Queue().RemoveRule(Films().id));
  Choose("/films/d");
  EXPECT_EQ(Queued().size(), 2U) << "the rule is gone";
  EXPECT_NE(Queue().AddRule("/films", "mp4"), Films().id) << "a number is never used twice";
}

TEST_F(ConversionRules, LeaveAFilmThatSomebodyHasAddedToo) {
  Queue().Add("/films/a", "/films", "mp4");
  Choose("/films/a");
  Choose("/films/b");
  Queue().Add("/films/b", "/films", "mp4");
  EXPECT_TRUE(Queue().RemoveRule(Films().id));
  EXPECT_EQ(Queued(), (Paths{"/films/a", "/films/b"}));
}

TEST_F(ConversionRules, LetFilmsThatPeopleHaveChosenGoFirst) {
  Choose("/films/a");
  Queue().Add("/films/b", "/films", "mp4");
  EXPECT_EQ(Queue().Next({})->path, "/films/b");
  EXPECT_EQ(Queue().Waiting(), 2);
}

TEST_F(ConversionRules, NeedAFolderWithoutResults) {
  MakeDirectory("/volume1/films");
  MakeDirectory("/volume1/@conversions/1");
  Write("/volume1/film.mkv", "x");
  EXPECT_TRUE(convert::MayHaveRule(Path("/volume1/films")));
  for (const char* path : {"/volume1/@conversions/1", "/volume1/film.mkv", "/volume1/none"}) {
    EXPECT_FALSE(convert::MayHaveRule(Path(path))) << path;
  }
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
