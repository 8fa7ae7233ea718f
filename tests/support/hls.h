// HLS streams for tests.
#pragma once

#include <string>
#include <vector>

#include "stream/http_live_stream.h"
#include "support/streams.h"

namespace test {

inline constexpr char kTranscodeProfile[] = "-vcodec libx264 -vb 2000k -acodec aac";
inline constexpr char kRemuxProfile[] = "-vcodec copy -bsf:v h264_mp4toannexb -acodec aac";

class HlsTest : public StreamTest {
 protected:
  static Json::Value Request() {
    return ParseText(
        R"({"url": "w.cgi", "format": "hls", "api": "ORVO.Mirevo2.Stream", "version": 1})");
  }
  // The address of a fragment of such a request, up to its number.
  static std::string Address() {
    return std::string("w.cgi?format=hls&stream_id=%22") + kId +
           "%22&api=ORVO.Mirevo2.Stream&version=1";
  }

  // Makes the stream on a data volume, as opening a film does.
  void Open(const char* profile) const { Open(FilmRecord(profile)); }
  void Open(const Json::Value& record) const;

  // The path of a file in the stream directory, without the sysroot.
  static std::string File(const std::string& name) { return Directory("HLS") + "/" + name; }
  static std::string Slice(int number);

  // Stores key frame times beside the film of a record.
  void StoreKeyframes(const std::string& film, const std::vector<double>& times, double end) const;
};

}  // namespace test
