// Which engine of FFmpeg serves a command line.
#include "transcoder/engines.h"

#include <gtest/gtest.h>

namespace {

using orvo::transcoder::EngineRecord;
using orvo::transcoder::WithServingEngine;
using Strings = std::vector<std::string>;

const Strings kVaapi = {"-i", "/hwupload/vaapi.mkv", "-vcodec", "h264_vaapi", "/vaapi/out.ts"};

EngineRecord With(const Strings& proved) {
  EngineRecord record;
  for (const std::string& encoder : proved) {
    record.Set({.encoder = encoder, .node = "/dev/x", .lines = 720});
  }
  return record;
}

TEST(ServingEngine, StandsInForVaapiWhereThatHasNotEncoded) {
  for (const char* encoder : {"h264_nvenc", "h264_qsv", "h264_v4l2m2m"}) {
    EXPECT_EQ(WithServingEngine(kVaapi, With({encoder})),
              (Strings{"-i", "/hwupload/vaapi.mkv", "-vcodec", encoder, "/vaapi/out.ts"}));
  }
  EXPECT_EQ(WithServingEngine(kVaapi, With({"h264_v4l2m2m", "h264_nvenc"}))[3], "h264_nvenc");
}

TEST(ServingEngine, IsVaapiItselfWhereItHasEncodedAndWhereNothingHas) {
  EXPECT_EQ(WithServingEngine(kVaapi, With({"h264_vaapi", "h264_nvenc"})), kVaapi);
  EXPECT_EQ(WithServingEngine(kVaapi, With({})), kVaapi);
  EXPECT_EQ(WithServingEngine(kVaapi, With({"orvo-gst"})), kVaapi);
}

TEST(ServingEngine, LeavesACommandThatNamesTheDevicesOfVaapi) {
  for (const char* filter : {"format=nv12,hwupload", "scale_vaapi=w=640:h=360"}) {
    const Strings command = {"-i", "film.mkv", "-vf", filter, "-vcodec", "h264_vaapi", "out.ts"};
    EXPECT_EQ(WithServingEngine(command, With({"h264_nvenc"})), command);
  }
}

}  // namespace
