#include "gst/conversion.h"

#include <fcntl.h>
#include <gst/gst.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/unique_fd.h"

namespace orvo::gst {
namespace {

constexpr Patience kPatient{60000, 1500};
constexpr Patience kImpatient{1000, 1500};

// What the conversion says, and how it ends; for a process of its own, which it ends.
[[noreturn]] void ConvertWith(const char* encoder, Encoders wanted, const Patience& patience) {
  setenv("ORVO_TEST_ENCODER", encoder, 1);
  setenv("GST_PLUGIN_PATH", GST_TEST_PLUGINS, 1);
  gst_init(nullptr, nullptr);
  Request request;
  request.film = std::string(GST_TEST_MEDIA) + "/h264_aac.mp4";
  request.encoders = wanted;
  request.output = open("/dev/null", O_WRONLY | O_CLOEXEC);
  Attendant none;
  const Result result = Convert(request, patience, none);
  fputs(result.error.c_str(), stderr);
  _exit(result.hasSucceeded ? 0 : 1);
}

class FilmConversion : public testing::Test {
 protected:
  FilmConversion() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

TEST_F(FilmConversion, GoesOnWithTheNextEncoderWhenTheFirstFails) {
  EXPECT_EXIT(ConvertWith("fails", Encoders::kAny, kPatient), testing::ExitedWithCode(0), "");
}

// On a busy machine nothing may have moved before the encoder was there.
TEST_F(FilmConversion, EndsWithAReasonWhenNothingMovesAnyMoreAndNothingElseEncodes) {
  EXPECT_EXIT(ConvertWith("hangs", Encoders::kHardware, kImpatient), testing::ExitedWithCode(1),
              "nothing here encodes H.264|the pipeline stands still");
}

}  // namespace
}  // namespace orvo::gst
