// Completing a transcoder's command line, becoming that transcoder, and keeping track of the
// process that watches it. These are members of the stream base, and log under its name.
#define ORVO_LOG_SOURCE "liborvoqmx.cpp"

#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/log.h"
#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/trans_loading.h"
#include "state/stream_lock.h"
#include "stream/liborvoqmx.h"
#include "util/lists.h"
#include "util/qmxutils.h"

namespace LibOrvoQMX {
namespace {

using LibMirevo::TransLoading;

constexpr int kMonitorEndMilliseconds = 5000;

std::string StartSeconds(int milliseconds) {
  char text[32];
  snprintf(text, sizeof(text), "%.3f", milliseconds / 1000.0);
  return text;
}

// A wish to end with the parent that this process has made, and how to make it again.
class ParentDeathWish {
 public:
  ParentDeathWish() : parent_(getppid()) { prctl(PR_GET_PDEATHSIG, &signal_); }
  // Ends the process where the parent has gone meanwhile.
  void Renew() const {
    if (signal_ != 0 && !orvo::DieWithParent(parent_)) {
      _exit(1);
    }
  }

 private:
  pid_t parent_;
  int signal_ = 0;
};

// Replaces the process image, as root where root is to be had. Returns only on failure.
bool Become(const char* action, const std::string& executable,
            const std::vector<std::string>& commandLine) {
  std::vector<char*> argv;
  argv.reserve(commandLine.size() + 1);
  for (const std::string& argument : commandLine) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  const ParentDeathWish wish;
  return libmrv::DoActionAsRoot(action, [&] {
    // The kernel drops it when ids change.
    wish.Renew();
    return execvp(executable.c_str(), argv.data()) != -1;
  });
}

// Admission and entry under one lock, so that of two launches at the same instant one sees the
// other.
bool Register(bool hardware) {
  TransLoading registry;
  if (!registry.TransEnable(hardware)) {
    ORVO_LOG("QMX - TransEnable Failed.");
    return false;
  }
  if (!registry.SaveTransPID(getpid(), hardware, false)) {
    ORVO_LOG("QMX - Fail SaveTransPID [%d].", getpid());
    return false;
  }
  return true;
}

int ParsePid(const std::string& text) {
  return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

}  // namespace

bool QMXStream::MayLaunch(const std::string& executable) const {
  if (m_streamKind.empty() || m_streamId.empty() || executable.empty() || m_profileValue.empty() ||
      GetSeekTimeInMillisecond() < 0 || m_metaData.GetFilePath().empty()) {
    return false;
  }
  return m_isRemux || Register(m_isHwTranscode);
}

bool QMXStream::ExecuteTranscoding(bool copyTimestamps, const std::vector<std::string>& arguments,
                                   const std::string& output, const std::string& executable) {
  if (!MayLaunch(executable)) {
    return false;
  }
  const std::vector<std::string> commandLine =
      TranscodingCommand(copyTimestamps, arguments, output, executable);
  return !commandLine.empty() && Become("Execute FFmpeg", executable, commandLine);
}

std::vector<std::string> QMXStream::TranscodingCommand(bool copyTimestamps,
                                                       const std::vector<std::string>& arguments,
                                                       const std::string& output,
                                                       const std::string& executable) const {
  std::vector<std::string> commandLine = {executable, "-ss",
                                          StartSeconds(GetSeekTimeInMillisecond())};
  if (m_isHwTranscode && !m_isVaapi && m_metaData.GetContainer() != "flv" &&
      GetMetaVideoRotate() == 0) {
    commandLine.emplace_back("-prefer_smd");
  }
  if (copyTimestamps) {
    commandLine.emplace_back("-copyts");
  }
  Append(commandLine, {"-i", m_metaData.GetFilePath()});
  Append(commandLine, arguments);
  const std::vector<std::string> mapping =
      ArgumentHelper(m_metaData).GetVideoAudioMap(GetRequestAudioID());
  if (mapping.empty() && m_streamKind == "HLS") {
    ORVO_LOG("QMX - Fail GetVideoAudioMap.");
    return {};
  }
  Append(commandLine, mapping);
  commandLine.push_back(output);
  return commandLine;
}

bool QMXStream::ExecuteGstreamerTranscoding(const std::string& output,
                                            const std::vector<std::string>& arguments,
                                            const std::string& executable, bool shiftTimestamps) {
  return MayLaunch(executable) &&
         Become("Execute GStreamer", executable,
                GstreamerCommand(output, arguments, executable, shiftTimestamps));
}

std::vector<std::string> QMXStream::GstreamerCommand(const std::string& output,
                                                     const std::vector<std::string>& arguments,
                                                     const std::string& executable,
                                                     bool shiftTimestamps) const {
  const ArgumentHelper policy(m_metaData);
  std::vector<std::string> commandLine = {executable, "-s",
                                          std::to_string(GetSeekTimeInMillisecond() / 1000), "-i",
                                          m_metaData.GetFilePath()};
  Append(commandLine, arguments);
  if (shiftTimestamps) {
    commandLine.emplace_back("--shiftpts");
  }
  Append(commandLine, {"-o", output});
  const std::string audioId = GetRequestAudioID();
  Append(commandLine, policy.GetGstreamAudioMap(audioId));

  const std::string format = ReadFile(GetQMXFileFullPath("audio_format"));
  const bool isChromecast = m_metaData.GetDevice() == "chromecast";
  if (format == "ac3_copy" && !isChromecast &&
      (policy.DoesAudioCodecMatch(audioId, "ac3") || policy.DoesAudioCodecMatch(audioId, "eac3"))) {
    Append(commandLine, {"--acodec", "copy"});
  } else if (isChromecast || format == "aac") {
    Append(commandLine, {"--acodec", "aac"});
  }
  return commandLine;
}

void QMXStream::ForceTranscodeBitrate(std::vector<std::string>& arguments) const {
  for (size_t i = 0; i + 1 < arguments.size(); ++i) {
    if (arguments[i] != "-vb" && arguments[i] != "--vb") {
      continue;
    }
    std::string& rate = arguments[i + 1];
    auto requested = static_cast<unsigned>(std::strtoul(rate.c_str(), nullptr, 10));
    if (!rate.empty() && rate.back() == 'k') {
      requested *= 1000;
    }
    rate = ToString(ArgumentHelper(m_metaData).GetTransVideoBitrate(requested));
    return;
  }
}

std::vector<std::string> QMXStream::ForceFFmpegAudioFormat(
    const std::vector<std::string>& arguments, const std::string& format) {
  // Any other format leaves the option with an empty value.
  std::string encoder;
  if (format == "copy") {
    encoder = "copy";
  } else if (format == "mp3") {
    encoder = ArgumentHelper::GetMP3Encoder();
  } else if (format == "aac") {
    encoder = ArgumentHelper::GetAACEncoder();
  }
  std::vector<std::string> adjusted;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "-acodec") {
      Append(adjusted, {argument, encoder});
      ++i;
    } else if (format == "copy" && (argument == "-ab" || argument == "-ar" || argument == "-ac")) {
      // A rate, a sample rate and a channel count make no sense for what is copied.
      ++i;
    } else {
      adjusted.push_back(argument);
    }
  }
  return adjusted;
}

std::vector<std::string> QMXStream::ForceFFmpegVideoSize(const std::vector<std::string>& arguments,
                                                         bool keepAspect) const {
  const bool exact = !m_isHwTranscode && !keepAspect;
  std::vector<std::string> adjusted;
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (i == 0 || arguments[i - 1] != "-s") {
      adjusted.push_back(arguments[i]);
      continue;
    }
    unsigned width = 0;
    unsigned height = 0;
    ArgumentHelper(m_metaData)
        .GetTransVideoSize(arguments[i], exact, GetMetaVideoRotate(), width, height);
    if (width == 0 || height == 0) {
      ORVO_LOG("Failed to GetTransVideoSize");
      adjusted.push_back(arguments[i]);
      continue;
    }
    adjusted.push_back(ToString(width) + "x" + ToString(height));
    const float ratio = static_cast<float>(width) / static_cast<float>(height);
    if (exact && ratio > 0 && m_metaData.GetVideoSampleAspectRatioNum() <= 0) {
      Append(adjusted, {"-aspect", ToString(ratio)});
    }
  }
  return adjusted;
}

bool QMXStream::SaveMonitorPid(int pid, bool wait) const {
  const StreamLock lock(GetQMXFileFullPath("filelock"), 0660);
  if (!lock.IsOpen()) {
    return false;
  }
  const std::string path = GetQMXFileFullPath("monitor.pid");
  const std::string recorded = ReadFile(path);
  const int oldPid = recorded.empty() ? -1 : ParsePid(recorded);
  KillProcess(oldPid);
  if (pid > 0) {
    SaveFile(path, std::to_string(pid));
  }
  if (wait && oldPid > 0) {
    orvo::WaitForExit(oldPid, kMonitorEndMilliseconds);
  }
  return true;
}

bool QMXStream::IsFFmpegRun() const {
  if (m_streamKind.empty() || m_streamId.empty()) {
    ORVO_LOG("Bad parameter");
    return false;
  }
  const std::string recorded = ReadFile(GetQMXFileFullPath("monitor.pid"));
  return !recorded.empty() && PlatProcAlive(ParsePid(recorded));
}

}  // namespace LibOrvoQMX
