// The transcoder: an FFmpeg command line with this system's own options in, stock FFmpeg in the
// same process out.
#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "contract/copies.h"
#include "contract/ready_ffmpeg.h"
#include "platform/log.h"
#include "platform/process_launch.h"
#include "transcoder/byte_run.h"
#include "transcoder/cmaf_packets.h"
#include "transcoder/cmaf_plan.h"
#include "transcoder/cmaf_request.h"
#include "transcoder/cmaf_run.h"
#include "transcoder/copy_parent.h"
#include "transcoder/encoder_inventory.h"
#include "transcoder/engine_proof.h"
#include "transcoder/engine_stream.h"
#include "transcoder/engines.h"
#include "transcoder/ffmpeg_listing.h"
#include "transcoder/film_clock.h"
#include "transcoder/film_index.h"
#include "transcoder/film_range.h"
#include "transcoder/filters.h"
#include "transcoder/fragment_run.h"
#include "transcoder/given_film.h"
#include "transcoder/launch.h"
#include "transcoder/places.h"
#include "transcoder/ready_parent.h"
#include "transcoder/resumption.h"
#include "transcoder/segment_run.h"
#include "transcoder/shell_line.h"
#include "transcoder/software_seat.h"
#include "transcoder/translation.h"

namespace {

using namespace orvo::transcoder;

constexpr char kEncodersName[] = "/transcoder_encoders";
constexpr char kFiltersName[] = "/transcoder_filters";
constexpr char kProveOption[] = "--prove";

const EngineRecord& Engines() {
  static const EngineRecord record = EngineRecord::Load();
  return record;
}

bool CanEncode(std::string_view encoder) {
  static EncoderInventory inventory(
      kExecutable, CacheFile(kEncodersName),
      [](std::string_view engine) { return Engines().Proved(engine).has_value(); });
  return inventory.CanEncode(encoder);
}

// For a run after the failure of an engine.
bool CanEncodeInSoftware(std::string_view encoder) {
  return !IsEngine(encoder) && CanEncode(encoder);
}

std::string NodeOf(std::string_view encoder) {
  const auto engine = Engines().Proved(encoder);
  return engine ? engine->node : "";
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

// A command line and what it needs.
class Job {
 public:
  Job(std::vector<std::string> arguments, std::optional<GivenFilm> film, int progress)
      : arguments_(std::move(arguments)), film_(std::move(film)), progress_(progress) {}

  Translation Translated() const { return TranslatedFor(arguments_, CanEncode); }

  int Start(const Translation& translation) const {
    if (translation.isEngineReplaced && !TakeSoftwareSeat()) {
      return kExitNoSeat;
    }
    if (translation.engine.empty() || translation.fragments) {
      return StartSoftware(translation);
    }
    return translation.segments ? StartSegments(translation) : StartBytes(translation);
  }

 private:
  Translation TranslatedFor(const std::vector<std::string>& arguments,
                            bool (*canEncode)(std::string_view)) const {
    Translation translation =
        Translate(arguments, {kExecutable, progress_, canEncode, NodeOf, LacksIndex, ClockJumps,
                              FindHighRange, HasFilter});
    if (film_) {
      film_->NameDemuxer(translation);
    }
    return translation;
  }

  int StartSoftware(const Translation& translation) const {
    if (translation.fragments) {
      return RunFragments(translation.command, *translation.fragments);
    }
    if (!translation.segments) {
      return WritesBytes(translation.command) ? StartSoftwareBytes(translation)
                                              : Become(translation.command);
    }
    return translation.copy ? RunSegments(*translation.copy, progress_, translation.command,
                                          *translation.segments)
                            : RunSegments(translation.command, *translation.segments);
  }

  int StartSoftwareBytes(const Translation& translation) const {
    return translation.copy ? RunCopyBytes(*translation.copy, progress_, translation.command)
                            : RunBytes(translation.command);
  }

  int StartSegments(const Translation& translation) const {
    const EngineRunEnd end = RunEngineSegments(translation.command, *translation.segments);
    return end.canGoOn ? GoOn(translation.engine,
                              ResumedAt(arguments_, *translation.segments, end.unfinishedPart))
                       : end.code;
  }

  int StartBytes(const Translation& translation) const {
    if (!WritesBytes(translation.command)) {
      return Become(translation.command);
    }
    if (translation.stream) {
      return StartStream(translation);
    }
    const ByteRunEnd end = RunEngineBytes(translation.command);
    return end.canGoOn ? GoOn(translation.engine, arguments_) : end.code;
  }

  int StartStream(const Translation& translation) const {
    return RunEngineStream(*translation.stream, OutputOf(translation.command), [&](double start) {
      return Abandon(translation.engine)
                 ? TranslatedFor(ResumedAt(arguments_, start), CanEncodeInSoftware).stream
                 : std::nullopt;
    });
  }

  // Leaves an engine that has failed, and takes a place for software instead. False if there is
  // none. The engine has to prove itself again.
  static bool Abandon(const std::string& engine) {
    orvo::Log(LOG_WARNING, __FILE__, __LINE__, "%s has failed; software goes on", engine.c_str());
    PrepareProcess();  // the next child gets its signals as the first one did
    orvo::LaunchOptions options;
    options.detached = true;
    orvo::Fork([] { return ProveAndSaveEngines().IsKnown() ? 0 : 1; }, options);
    return TakeSoftwareSeat();
  }

  // The same pictures from software.
  int GoOn(const std::string& engine, const std::vector<std::string>& arguments) const {
    return Abandon(engine) ? StartSoftware(TranslatedFor(arguments, CanEncodeInSoftware))
                           : kExitNoSeat;
  }

  std::vector<std::string> arguments_;
  std::optional<GivenFilm> film_;
  int progress_;
};

int Prove() {
  const EngineRecord record = ProveAndSaveEngines();
  for (const Engine& engine : record.All()) {
    const std::string proof =
        engine.lines > 0 ? std::to_string(engine.lines) + " lines on " + engine.node + ". " : "";
    printf("%s: %s%s\n", engine.encoder.c_str(), proof.c_str(), engine.reason.c_str());
  }
  return fflush(stdout) == 0 ? 0 : 1;
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
    return WriteCmafPackets(*request, OpenFilm(request->film), STDOUT_FILENO);
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
  if (arguments == std::vector<std::string>{orvo::kReadyOption}) {
    return BecomeReady();
  }
  if (arguments == std::vector<std::string>{kProveOption}) {
    return Prove();
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
  if (std::find(arguments.begin(), arguments.end(), kVaapiEncoder) != arguments.end()) {
    arguments = WithServingEngine(std::move(arguments), Engines());
  }
  const Job job(arguments, film, OpenProgressFile());
  const Translation translation = job.Translated();
  if (!translation.error.empty()) {
    return Refuse(translation.error);
  }
  for (const std::string& note : translation.notes) {
    orvo::Log(LOG_NOTICE, __FILE__, __LINE__, "%s", note.c_str());
  }
  return explain ? Explain(translation) : job.Start(translation);
}
