// The record of a stream's film, and what is decided from it.
#include <cmath>
#include <set>

#include "fuzz/fuzz.h"
#include "metadata/qmxmetadata.h"
#include "policy/argument_helper.h"
#include "state/stream_directory.h"
#include "webapi/choice/client_support.h"
#include "webapi/choice/profiles.h"

namespace {

using LibOrvoQMX::ArgumentHelper;
using LibOrvoQMX::QMXMetaData;

constexpr char kStream[] = "0123456789abcdef0123456789abcdef_abcdefgh";
constexpr char kKind[] = "HLS";

void CheckNumbers(const QMXMetaData& film) {
  fuzz::Demand(std::isfinite(film.GetVideoRatio()) && std::isfinite(film.GetVideoFramerate()));
  const ArgumentHelper helper(film);
  for (const unsigned rotate : {0U, 90U}) {
    for (const char* name : {"hd720", "360"}) {
      unsigned width = 0;
      unsigned height = 0;
      helper.GetTransVideoSize(name, false, rotate, width, height);
      fuzz::Demand(width <= 16384 && height <= 16384);
    }
  }
  constexpr unsigned kLeast = 500000;
  fuzz::Demand(helper.GetTransVideoBitrate(1) >= kLeast);
}

// A track's number becomes an argument of FFmpeg, but never an option.
void CheckMaps(const QMXMetaData& film) {
  const ArgumentHelper helper(film);
  for (const auto& map : {helper.GetVideoAudioMap(""), helper.GetGstreamAudioMap("1")}) {
    for (const std::string& argument : map) {
      fuzz::Demand(argument == "-map" || argument == "--aidx" || argument.empty() ||
                   argument[0] != '-');
    }
  }
}

void CheckVerdicts(const QMXMetaData& film) {
  static const std::set<std::string> methods = {"remux", "transcode", "refused"};
  for (const char* value : {"-vcodec copy -f mpegts", "-vcodec libx264 -s hd720 -f mp4"}) {
    for (const char* key : {"hls_1", "http_1", "smoothstreaming_1"}) {
      const webapi::Verdict verdict = webapi::Judge({key, value}, film);
      fuzz::Demand(methods.count(verdict.method) == 1 && !verdict.why.empty());
      fuzz::Demand((verdict.method == "refused") == !verdict.refusal.empty());
    }
  }
  fuzz::Demand(!webapi::JudgeDirect(film, {.userAgent = "Mozilla/5.0 Chrome/100"}).why.empty());
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string record = LibOrvoQMX::StreamDirectory(kKind, kStream).RecordPath();
  fuzz::WriteFile(record.substr(fuzz::Root().size()), fuzz::TextOf(data, size));
  QMXMetaData film(kStream, kKind);
  if (film.LoadMetaData()) {
    CheckNumbers(film);
    CheckMaps(film);
    CheckVerdicts(film);
  }
  return 0;
}
