// These functions log under the source file of the stream base class.
#define ORVO_LOG_SOURCE "liborvoqmx.cpp"

#include "stream/pipeline/transcoder_command.h"

#include <cstdio>

#include "platform/log.h"
#include "policy/argument_helper.h"
#include "util/lists.h"

namespace LibOrvoQMX {
namespace {

std::string StartSeconds(int milliseconds) {
  char text[32];
  snprintf(text, sizeof(text), "%.3f", milliseconds / 1000.0);
  return text;
}

std::vector<std::string> WrapperAudioCodec(const TranscoderRun& run, const std::string& format) {
  const ArgumentHelper policy(run.record);
  const bool isChromecast = run.record.GetDevice() == "chromecast";
  if (format == "ac3_copy" && !isChromecast &&
      (policy.DoesAudioCodecMatch(run.audioId, "ac3") ||
       policy.DoesAudioCodecMatch(run.audioId, "eac3"))) {
    return {"--acodec", "copy"};
  }
  if (isChromecast || format == "aac") {
    return {"--acodec", "aac"};
  }
  return {};
}

}  // namespace

std::vector<std::string> FfmpegCommand(const TranscoderRun& run, const FfmpegRules& rules) {
  std::vector<std::string> commandLine = {run.executable, "-ss",
                                          StartSeconds(run.startMilliseconds)};
  if (rules.prefersHardwareDecoder) {
    commandLine.emplace_back("-prefer_smd");
  }
  if (rules.copyTimestamps) {
    commandLine.emplace_back("-copyts");
  }
  Append(commandLine, {"-i", run.record.GetFilePath()});
  Append(commandLine, run.arguments);
  const std::vector<std::string> mapping = ArgumentHelper(run.record).GetVideoAudioMap(run.audioId);
  if (mapping.empty() && rules.needsMapping) {
    ORVO_LOG("QMX - Fail GetVideoAudioMap.");
    return {};
  }
  Append(commandLine, mapping);
  commandLine.push_back(run.output);
  return commandLine;
}

std::vector<std::string> WrapperCommand(const TranscoderRun& run, const WrapperRules& rules) {
  std::vector<std::string> commandLine = {run.executable, "-s",
                                          std::to_string(run.startMilliseconds / 1000), "-i",
                                          run.record.GetFilePath()};
  Append(commandLine, run.arguments);
  if (rules.shiftTimestamps) {
    commandLine.emplace_back("--shiftpts");
  }
  Append(commandLine, {"-o", run.output});
  Append(commandLine, ArgumentHelper(run.record).GetGstreamAudioMap(run.audioId));
  Append(commandLine, WrapperAudioCodec(run, rules.audioFormat));
  return commandLine;
}

}  // namespace LibOrvoQMX
