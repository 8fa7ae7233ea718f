// The transcoder: an FFmpeg command line with this system's own options in, stock FFmpeg in the
// same process out.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "contract/copies.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "transcoder/cmaf_packets.h"
#include "transcoder/cmaf_plan.h"
#include "transcoder/cmaf_request.h"
#include "transcoder/cmaf_run.h"
#include "transcoder/copy_parent.h"
#include "transcoder/encoder_inventory.h"
#include "transcoder/ffmpeg_listing.h"
#include "transcoder/film_clock.h"
#include "transcoder/film_index.h"
#include "transcoder/film_range.h"
#include "transcoder/filters.h"
#include "transcoder/fragment_run.h"
#include "transcoder/given_film.h"
#include "transcoder/launch.h"
#include "transcoder/segment_run.h"
#include "transcoder/shell_line.h"
#include "transcoder/translation.h"

namespace {

using namespace orvo::transcoder;

constexpr char kExecutable[] = "/usr/bin/ffmpeg";
constexpr char kCacheFolder[] = "/tmp/Mirevo";
constexpr char kEncodersName[] = "/transcoder_encoders";
constexpr char kFiltersName[] = "/transcoder_filters";
constexpr mode_t kCacheFolderMode = 0777;  // the request programs' folder, whoever makes it first

bool NodeExists(const char* node) {
  return access(node, F_OK) == 0;
}

std::string CacheFile(const char* name) {
  const std::string folder = orvo::SystemPath(kCacheFolder);
  libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, kCacheFolderMode);
  return folder + name;
}

bool CanEncode(std::string_view encoder) {
  static EncoderInventory inventory(kExecutable, CacheFile(kEncodersName), NodeExists);
  return inventory.CanEncode(encoder);
}

bool HasFilter(std::string_view filter) {
  static FfmpegListing filters(kExecutable, "-filters", CacheFile(kFiltersName));
  return filters.Has(filter);
}

int Refuse(const std::string& error) {
  ORVO_LOG("%s", error.c_str());
  fprintf(stderr,
          "ffmpeg: %s\nUsage: ffmpeg [--explain] [INPUT OPTIONS] -i FILM [OPTIONS] OUTPUT\n",
          error.c_str());
  return kExitUsage;
}

int Explain(const Translation& translation) {
  return printf("%s\n", ShellLine(translation.command).c_str()) < 0 || fflush(stdout) != 0;
}

int Start(const Translation& translation, int progress) {
  if (translation.fragments) {
    return RunFragments(translation.command, *translation.fragments);
  }
  if (!translation.segments) {
    return Become(translation.command);
  }
  return translation.copy
             ? RunSegments(*translation.copy, progress, translation.command, *translation.segments)
             : RunSegments(translation.command, *translation.segments);
}

// The filters that a film in PQ or HLG needs; empty for all others.
std::string ToneMappingOf(const std::string& film) {
  const auto range = FindHighRange(film);
  return range && HasFilter("zscale") ? ToneMapping(*range) : "";
}

int MakeRendition(const std::vector<std::string>& arguments) {
  const auto request = ParseCmafRequest(arguments);
  if (!request) {
    return Refuse("a rendition cannot be made of these options");
  }
  if (request->treatment == Treatment::kPlan) {
    return WriteCmafPlan(*request);
  }
  if (request->treatment == Treatment::kPackets) {
    return WriteCmafPackets(*request);
  }
  const bool encodes = request->treatment == Treatment::kH264;
  return RunCmaf(*request, {kExecutable, encodes ? ToneMappingOf(request->film) : "",
                            OpenProgressFile(), LacksIndex(request->film)});
}

}  // namespace

int main(int argc, char* argv[]) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  const bool explain = !arguments.empty() && arguments.front() == "--explain";
  if (explain) {
    arguments.erase(arguments.begin());
  }
  PrepareProcess();
  if (arguments == std::vector<std::string>{orvo::kCopiesOption}) {
    return ServeCopies();
  }
  std::string error;
  const auto film = explain ? std::nullopt : GivenFilm::Find(error);
  if (!error.empty()) {
    return Refuse(error);
  }
  if (film) {
    arguments = film->InPlaceOf(arguments);
  }
  if (!arguments.empty() && arguments.front() == kCmafOption) {
    return MakeRendition(arguments);
  }
  const int progress = OpenProgressFile();
  Translation translation = Translate(arguments, {kExecutable, progress, CanEncode, LacksIndex,
                                                  ClockJumps, FindHighRange, HasFilter});
  if (!translation.error.empty()) {
    return Refuse(translation.error);
  }
  for (const std::string& note : translation.notes) {
    orvo::Log(LOG_NOTICE, __FILE__, __LINE__, "%s", note.c_str());
  }
  if (film) {
    film->NameDemuxer(translation);
  }
  return explain ? Explain(translation) : Start(translation, progress);
}
