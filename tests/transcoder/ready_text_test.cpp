#include "transcoder/ready_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using orvo::transcoder::ParseReadyRun;
using orvo::transcoder::ReadyRun;
using orvo::transcoder::TextOf;
using namespace std::string_literals;

TEST(ReadyText, IsReadBackUnchanged) {
  const ReadyRun run{{0, 1, 2, 17}, {"/usr/bin/ffmpeg", "-i", "/films/a \n\"b\",1.mkv", "", "-"}};
  const auto read = ParseReadyRun(TextOf(run));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->numbers, run.numbers);
  EXPECT_EQ(read->command, run.command);
}

TEST(ReadyText, MayHaveNoDescriptors) {
  const auto read = ParseReadyRun(TextOf({{}, {"ffmpeg"}}));
  ASSERT_TRUE(read);
  EXPECT_TRUE(read->numbers.empty());
}

TEST(ReadyText, HasACommandAndEachDescriptorOnce) {
  for (const std::string& text :
       {""s, "\0"s, "1,\0"s, "ffmpeg\0"s, "1,1,\0ffmpeg\0"s, "-1,\0ffmpeg\0"s, "1024,\0ffmpeg\0"s,
        "1x,\0ffmpeg\0"s, ",\0ffmpeg\0"s, "1,\0ffmpeg"s}) {
    EXPECT_FALSE(ParseReadyRun(text)) << testing::PrintToString(text);
  }
}

}  // namespace
