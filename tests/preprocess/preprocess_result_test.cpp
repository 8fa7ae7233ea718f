#include "preprocess/preprocess_result.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

extern "C" {
#include <libavutil/frame.h>
}

#include "support/sysroot.h"

namespace {

using LibOrvoQMX::preprocess::PreprocessResultWrapper;
using LibOrvoQMX::preprocess::PreprocessUtil;
using Times = std::vector<double>;

// A double as the wire has it: eight bytes, the lowest first.
std::string Fixed64(double value) {
  std::string bytes(sizeof(value), '\0');
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}

class Result : public test::Sysroot {
 protected:
  PreprocessResultWrapper ReadBack(const std::string& content, bool readable = true) const {
    Write("/result", content);
    PreprocessResultWrapper result;
    EXPECT_EQ(result.ReadFromFile(Path("/result")), readable);
    return result;
  }
};

TEST_F(Result, IsAmongTheIndexersFilesOfTheFilm) {
  EXPECT_EQ(PreprocessUtil::GetPreprocessResultPath("/v/film.mkv"),
            "/v/@ea/film.mkv/ORVOVIDEO_PREPROCESS_V1");
  EXPECT_EQ(PreprocessUtil::GetPreprocessResultPath(""), "");
  EXPECT_EQ(PreprocessUtil::GetPreprocessResultPath("/v/"), "");
}

TEST_F(Result, ContainsOnlyTheMessage) {
  PreprocessResultWrapper result;
  result.PushPtsTime(1.5);
  result.PushPtsTime(0.25);
  result.set_end_time(30);
  ASSERT_TRUE(result.WriteToFile(Path("/result")));
  EXPECT_EQ(Read("/result"),
            "\x0a\x09\x09" + Fixed64(1.5) + "\x0a\x09\x09" + Fixed64(0.25) + "\x11" + Fixed64(30));
}

TEST_F(Result, ReadsBackWhatWasWritten) {
  PreprocessResultWrapper written;
  for (const double time : {3.0, 5.0, 4.0, 1.0}) {
    written.PushPtsTime(time);
  }
  written.set_end_time(60.5);
  ASSERT_TRUE(written.WriteToFile(Path("/result")));
  PreprocessResultWrapper read;
  ASSERT_TRUE(read.ReadFromFile(Path("/result")));
  EXPECT_EQ(read.end_time(), 60.5);
  EXPECT_EQ(read.GetAllKeyframePtsTime(), (Times{0, 2, 1, -2}));
}

TEST_F(Result, CountsTimesFromTheFirstKeyFrame) {
  PreprocessResultWrapper result;
  EXPECT_EQ(result.GetAllKeyframePtsTime(), Times());
  result.PushPtsTime(12.5);
  EXPECT_EQ(result.GetAllKeyframePtsTime(), Times{0});
}

TEST_F(Result, StoresTheTimeOfADecodedFrame) {
  AVFrame frame{};
  PreprocessResultWrapper result;
  for (const int64_t pts : {900, 1924, 6020}) {
    frame.pts = pts;
    result.ProcessFrame(frame, AVRational{2, 2048});
  }
  EXPECT_EQ(result.GetAllKeyframePtsTime(), (Times{0, 1, 5}));
}

TEST_F(Result, IsCopiedWhole) {
  PreprocessResultWrapper result;
  result.PushPtsTime(1);
  PreprocessResultWrapper copy(result);
  result.PushPtsTime(2);
  EXPECT_EQ(copy.GetAllKeyframePtsTime(), Times{0});
  copy = result;
  EXPECT_EQ(copy.GetAllKeyframePtsTime(), (Times{0, 1}));
}

TEST_F(Result, ThatIsMissingOrNotAFileIsNotRead) {
  PreprocessResultWrapper result;
  EXPECT_FALSE(result.ReadFromFile(Path("/result")));
  EXPECT_FALSE(result.ReadFromFile(""));
  EXPECT_FALSE(result.ReadFromFile(Root()));
  ASSERT_EQ(mkfifo(Path("/fifo").c_str(), 0600), 0);
  EXPECT_FALSE(result.ReadFromFile(Path("/fifo")));
}

TEST_F(Result, ThatIsDamagedIsNotRead) {
  ReadBack("\x0a", false);
  ReadBack("\x0a\x09\x09" + Fixed64(1).substr(1), false);
  ReadBack(std::string(1000, '\xFF'), false);
  ReadBack("This is no result.\n", false);
}

TEST_F(Result, OfANewerProducerIsRead) {
  // An unknown field, and a group without its time.
  EXPECT_EQ(ReadBack(std::string("\x18\x07\x0a\0", 4)).GetAllKeyframePtsTime(), Times{0});
}

TEST_F(Result, ThatCannotBeWrittenIsAFailure) {
  EXPECT_FALSE(PreprocessResultWrapper().WriteToFile(Path("/missing/result")));
  PreprocessResultWrapper result;
  result.PushPtsTime(1);
  EXPECT_FALSE(result.WriteToFile("/dev/full"));
}

}  // namespace
