#include "transcoder/option_values.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support.h"
#include "transcoder/launch.h"

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

struct OptionCase {
  const char* option;
  Strings good;
  Strings bad;  // beside what is bad everywhere
};

const Strings kNoValues = {"",
                           " ",
                           "x",
                           "nan",
                           "inf",
                           "-inf",
                           "1e3",
                           "0x10",
                           "5,",
                           "5 5",
                           " 5",
                           "5 ",
                           "5x",
                           "--1",
                           "1e999",
                           "99999999999999999999999999",
                           "-99999999999999999999999999"};

const OptionCase kCases[] = {
    {"-ss",
     {"0", "0.000", "83.250", "1:30", "01:02:03.5"},
     {"-1", "360001", "1:2:3:4", "1:60", ":"}},
    {"-webm_seek_time", {"0", "30"}, {"-1", "360001", "1:30"}},
    {"-seek_time", {"0", "30", "5.1"}, {"-1", "360001", "1:30"}},
    {"-hls_seek_time", {"0", "5000"}, {"-1", "0.5", "360000001"}},
    {"-segment_time", {"0.5", "2", "2.5", "5", "600"}, {"0", "-0", "-5", "0.49", "601"}},
    {"-fragment_length", {"0.5", "2", "2.5", "5", "600"}, {"0", "-0", "-5", "0.49", "601"}},
    {"-segment_time_delta", {"0.000", "-1.250", "3"}, {"360001", "-360001"}},
    {"-segment_start_number", {"0", "7", "00007"}, {"-1", "1.5", "1000001"}},
    {"-break_non_keyframes", {"0", "1"}, {"2", "-1", "true"}},
    {"-individual_header_trailer", {"0", "1"}, {"2", "-1"}},
    {"-filled", {"0", "1"}, {"2", "-1"}},
    {"-vb", {"1", "200000", "2000k", "4M"}, {"0", "-1", "k", "1.5k", "1G", "2000M"}},
    {"-ab", {"1", "40000", "128k"}, {"0", "-1", "k", "1.5k"}},
    {"-maxrate", {"2000k"}, {"0", "-1"}},
    {"-bufsize", {"2000k"}, {"0", "-1"}},
    {"-ar", {"8000", "48000"}, {"0", "-48000", "44.1"}},
    {"-ac", {"1", "2", "6"}, {"0", "-2", "2.1", "65"}},
    {"-s",
     {"640x480", "hd720", "vga"},
     {"640", "640x", "x480", "0x480", "640x0", "-640x480", "640x480x2", "640.5x480", "99999x480",
      "640X480", "640:480"}},
    {"-aspect", {"1.77778", "16:9"}, {"0", "-1", "16:0", "0:9", "16:", ":9", "16:9:1", "101"}},
};

// A machine of the test's own: what a command line touches shows in it.
class OptionValues : public testing::Test {
 protected:
  OptionValues() { setenv("ORVO_SYSROOT", folder_.Path("").c_str(), 1); }
  ~OptionValues() override { unsetenv("ORVO_SYSROOT"); }

  test::Result Explain(const std::string& option, const std::string& value) {
    return test::RunTranscoder({"--explain", "-i", "f", "-vb", "1", "-ab", "1", option, value,
                                "-vcodec", "h264_smd", folder_.Path("out")});
  }

  test::TempDir folder_;
};

TEST_F(OptionValues, ABadValueIsAnErrorWithAReasonAndTouchesNothing) {
  for (const OptionCase& row : kCases) {
    Strings values = kNoValues;
    values.insert(values.end(), row.bad.begin(), row.bad.end());
    for (const std::string& value : values) {
      const test::Result result = test::RunTranscoder(
          {"-i", "f", row.option, value, "-vcodec", "h264_smd", folder_.Path("out")});
      EXPECT_EQ(result.status, kExitUsage) << row.option << " " << value;
      EXPECT_NE(result.error.find(std::string(row.option) + " takes "), std::string::npos)
          << row.option << " " << value << ": " << result.error;
      EXPECT_TRUE(std::filesystem::is_empty(folder_.Path(""))) << row.option << " " << value;
    }
  }
}

TEST_F(OptionValues, AGoodValueIsTaken) {
  for (const OptionCase& row : kCases) {
    for (const std::string& value : row.good) {
      const test::Result result = Explain(row.option, value);
      EXPECT_EQ(result.status, 0) << row.option << " " << value << ": " << result.error;
    }
  }
}

TEST_F(OptionValues, TimesAreInSecondsWhateverTheyAreGivenIn) {
  EXPECT_EQ(ParseValue(ValueKind::kTime, "01:02:03.5"), 3723.5);
  EXPECT_EQ(ParseValue(ValueKind::kTime, "90:30"), 5430);
  EXPECT_EQ(ParseValue(ValueKind::kMilliseconds, "83250"), 83.25);
}

TEST_F(OptionValues, UnitsMultiplyBitRates) {
  EXPECT_EQ(ParseValue(ValueKind::kBitRate, "2000k"), 2'000'000);
  EXPECT_EQ(ParseValue(ValueKind::kBitRate, "4M"), 4'000'000);
}

TEST_F(OptionValues, SizesHaveNames) {
  const auto size = ParseSize("hd720");
  ASSERT_TRUE(size);
  EXPECT_EQ(size->width, 1280);
  EXPECT_EQ(size->height, 720);
}

}  // namespace
}  // namespace orvo::transcoder
