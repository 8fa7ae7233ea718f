#include "stream/liborvoqmx.h"

#include "platform/log.h"
#include "platform/media_file.h"
#include "platform/plat.h"
#include "policy/argument_helper.h"
#include "policy/offline_conversion.h"
#include "policy/platform_utils.h"
#include "policy/profile_traits.h"
#include "policy/trans_loading.h"
#include "state/stream_directory.h"
#include "state/stream_room.h"
#include "stream/pipeline/argument_adjustment.h"
#include "stream/pipeline/transcoder_command.h"
#include "stream/pipeline/transcoder_launch.h"
#include "util/json_utils.h"
#include "util/md5.h"
#include "util/media_formats.h"
#include "util/qmxutils.h"
#include "util/random_string.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

using LibMirevo::TransLoading;
using libmrv::util::PlatformUtils;

constexpr char kNoSpace[] = "TransSapceNotEnough";
constexpr int kRandomLength = 8;
constexpr uint64_t kRemuxSpace = 0x80000000;      // 2 GiB
constexpr uint64_t kTranscodeSpace = 0x20000000;  // 512 MiB

}  // namespace

bool GetTmpDir(uint64_t space, const std::string& kind, const std::string& streamId,
               std::string& dir) {
  return MakeVolumeDirectory(space, kind, streamId, dir);
}

QMXStream::QMXStream(const std::string& streamId, const std::string& streamKind)
    : m_streamId(streamId), m_streamKind(streamKind), m_metaData(streamId, streamKind) {
  if (streamId == kNoSpace) {
    return;
  }
  m_metaData.LoadMetaData();
  ReadProfile();
}

QMXStream::QMXStream(const QMXMetaData& plan, const std::string& streamKind)
    : m_streamKind(streamKind), m_metaData(plan) {
  ReadProfile();
}

void QMXStream::ReadProfile() {
  m_profileValue = m_metaData.GetProfileValue();
  if (m_profileValue.empty()) {
    return;
  }
  const ProfileTraits traits = ProfileTraits::Of(m_profileValue);
  m_isRemux = traits.remux;
  m_isHwTranscode = traits.hardware;
  m_isGstreamer = traits.gstreamer;
  m_isVaapi = traits.vaapi;
}

std::string QMXStream::QMX_Init(const QMXInitArgument& argument) {
  return QMX_Init(argument, VideoMetaData::OpenFilm(argument.filePath));
}

std::string QMXStream::QMX_Init(const QMXInitArgument& argument, const orvo::MediaFile& film) {
  if (argument.filePath.empty() || argument.streamKind.empty() || argument.profilePath.empty() ||
      argument.profileKey.empty() || !LibMirevo::IsJsonText(argument.filePath)) {
    return "";
  }
  const Json::Value& args = argument.args;
  const bool isObject = args.isObject();
  const bool joins = isObject && args["stream_id"].isString();
  const std::string streamId =
      joins ? args["stream_id"].asString() : GetRandStreamID(argument.filePath);
  // The name comes from a client. Later code refuses an empty one with an error word.
  if (!streamId.empty() ? !IsPlainName(streamId) : !joins) {
    return "";
  }
  if (!CreateTmpDir(streamId, argument.streamKind, argument.profilePath, argument.profileKey,
                    argument.needSpace)) {
    return kNoSpace;
  }
  const bool hlsHeader = isObject && args["hls_header"].isBool() && args["hls_header"].asBool();
  if (!QMXMetaData::ParserMetaData(argument, film, streamId, hlsHeader)) {
    ORVO_LOG("QMXMetaData.ParserMetaData(%s, %s) failed", streamId.c_str(),
             argument.streamKind.c_str());
    return "";
  }
  return streamId;
}

std::string QMXStream::GetRandStreamID(const std::string& path) {
  const std::string digest = LibMirevo::GetMD5(path);
  return digest.empty() ? "" : libmrv::util::RandomString(digest + "_", kRandomLength);
}

bool QMXStream::CreateTmpDir(const std::string& streamId, const std::string& streamKind,
                             const std::string& profilePath, const std::string& profileKey,
                             uint64_t space) {
  if (streamId.empty() || streamKind.empty() || profileKey.empty() || profilePath.empty()) {
    return false;
  }
  if (!MakeKindDirectory(streamKind)) {
    return false;
  }
  if (streamKind == "HTTP") {
    return MakePlainDirectory(streamKind, streamId);
  }
  uint64_t needed = kTranscodeSpace;
  if (streamKind == "HLS" && IsRemux(profilePath, profileKey)) {
    needed = space != 0 ? space : kRemuxSpace;
  }
  return GetVolTmpAndSymlink(needed, streamId, streamKind);
}

bool QMXStream::GetVolTmpAndSymlink(uint64_t space, const std::string& streamId,
                                    const std::string& streamKind) {
  return MakeLinkedDirectory(space, streamKind, streamId);
}

bool QMXStream::IsRemux(const std::string& profilePath, const std::string& profileKey) {
  std::string value;
  return ReadProfileValue(profilePath, profileKey, value) && ProfileTraits::Of(value).remux;
}

std::string QMXStream::GetTranscoder() const {
  return orvo::SystemPath(m_isGstreamer ? kGstreamerWrapper
                          : m_isVaapi   ? kVaapiTranscoder
                                        : kTranscoder);
}

unsigned QMXStream::GetMetaVideoRotate() const {
  return m_metaData.GetVideoRotate();
}

std::string QMXStream::GetStreamID() const {
  return m_streamId;
}

std::string QMXStream::GetErrorString() const {
  return m_errorString;
}

bool QMXStream::SetError(const std::string& error) {
  if (error.empty()) {
    return false;
  }
  m_errorString = error;
  return true;
}

StreamDirectory QMXStream::Directory() const {
  return StreamDirectory(m_streamKind, m_streamId);
}

std::string QMXStream::GetQMXFileFullPath(const std::string& name) const {
  return Directory().FilePath(name);
}

Json::Value QMXStream::GetFirstVideoInfo() const {
  return m_metaData.GetVideo(0);
}

std::string QMXStream::GetRequestAudioID() const {
  return Directory().AudioId().Read();
}

bool QMXStream::IsSourceAudioCodec(const std::string& codec) const {
  return ArgumentHelper(m_metaData).DoesAudioCodecMatch(GetRequestAudioID(), codec);
}

bool QMXStream::InitStreamCommon(const std::string& audioId, bool force) {
  const ArgumentHelper policy(m_metaData);
  if (m_streamId == kNoSpace) {
    SetError(kNoSpace);
    return false;
  }
  if (m_streamId.empty() || m_streamKind.empty() || m_profileValue.empty()) {
    return false;
  }
  const StreamDirectory directory = Directory();
  if (!directory.Exists()) {
    ORVO_LOG("Can't file tmp file [%s]", directory.Path().c_str());
    return false;
  }
  if (!policy.ZeroAudioTrack() && !policy.AbleToDecodeAudio(audioId)) {
    SetError("TransAudioNotSupported");
    return false;
  }
  if (!m_isRemux) {
    const unsigned capability = policy.AbleToTranscodeTheVideo(m_isHwTranscode);
    if (capability != kHardwareAble) {
      SetError(ArgumentHelper::RefusalWord(capability));
      return false;
    }
    if (!CheckTransLoading(force)) {
      return false;
    }
  }
  return SaveAudioId(audioId, ORVO_LOG_SOURCE);
}

bool QMXStream::SaveAudioId(const std::string& audioId, const char* source) const {
  const StateFile file = Directory().AudioId();
  if (audioId.empty() || file.Write(audioId)) {
    return true;
  }
  orvo::Log(LOG_ERR, source, __LINE__, "Failed to save audio ID [%s] in [%s]", audioId.c_str(),
            file.Path().c_str());
  return false;
}

bool QMXStream::CheckTransLoading(bool force) {
  if (!force) {
    if (TransLoading().IsOffineConverting()) {
      SetError("TransEnableOfflineConverting");
      return false;
    }
  } else if (!PlatformUtils::GetInst().IsSupportVaapi()) {
    LibMirevo::AskOfflineConversionToGiveWay();
  }
  if (!TransLoading().TransEnable(m_isHwTranscode)) {
    SetError("TransEnable");
    return false;
  }
  return true;
}

bool QMXStream::CloseStreamCommon() {
  if (m_streamId.empty() || m_streamKind.empty()) {
    return false;
  }
  if (Directory().Exists()) {
    SaveMonitorPid(0, false);
    RemoveTransDir();
  }
  return true;
}

bool QMXStream::RemoveTransDir() {
  if (!IsPlainName(m_streamId) || m_streamKind.empty()) {
    return false;
  }
  RemoveLinkedDirectory(Directory().Path());
  return true;
}

bool QMXStream::MayLaunch(const std::string& executable) const {
  if (m_streamKind.empty() || m_streamId.empty() || executable.empty() || m_profileValue.empty() ||
      GetSeekTimeInMillisecond() < 0 || m_metaData.GetFilePath().empty()) {
    return false;
  }
  return m_isRemux || RegisterTranscoder(m_isHwTranscode);
}

PassedFilm QMXStream::FilmToPass() const {
  // If the record cannot be read, no film is the right one.
  return {m_metaData.GetFilePath(), Directory().Film().TryRead().value_or("unknown"),
          orvo::DemuxerOf(m_metaData.GetContainer())};
}

bool QMXStream::ExecuteTranscoding(bool copyTimestamps, const std::vector<std::string>& arguments,
                                   const std::string& output, const std::string& executable) {
  if (!MayLaunch(executable)) {
    return false;
  }
  const std::vector<std::string> commandLine =
      TranscodingCommand(copyTimestamps, arguments, output, executable);
  return !commandLine.empty() && BecomeTranscoder("Execute FFmpeg", commandLine, FilmToPass());
}

std::vector<std::string> QMXStream::TranscodingCommand(bool copyTimestamps,
                                                       const std::vector<std::string>& arguments,
                                                       const std::string& output,
                                                       const std::string& executable) const {
  FfmpegRules rules;
  rules.copyTimestamps = copyTimestamps;
  rules.prefersHardwareDecoder = m_isHwTranscode && !m_isVaapi &&
                                 m_metaData.GetContainer() != "flv" && GetMetaVideoRotate() == 0;
  rules.needsMapping = m_streamKind == "HLS";
  return FfmpegCommand(
      {m_metaData, executable, GetSeekTimeInMillisecond(), GetRequestAudioID(), arguments, output},
      rules);
}

bool QMXStream::ExecuteGstreamerTranscoding(const std::string& output,
                                            const std::vector<std::string>& arguments,
                                            const std::string& executable, bool shiftTimestamps) {
  return MayLaunch(executable) &&
         BecomeTranscoder("Execute GStreamer",
                          GstreamerCommand(output, arguments, executable, shiftTimestamps),
                          FilmToPass());
}

std::vector<std::string> QMXStream::GstreamerCommand(const std::string& output,
                                                     const std::vector<std::string>& arguments,
                                                     const std::string& executable,
                                                     bool shiftTimestamps) const {
  return WrapperCommand(
      {m_metaData, executable, GetSeekTimeInMillisecond(), GetRequestAudioID(), arguments, output},
      {shiftTimestamps, Directory().AudioFormat().Read()});
}

void QMXStream::ForceTranscodeBitrate(std::vector<std::string>& arguments) const {
  arguments = WithVideoBitrate(std::move(arguments), m_metaData);
}

std::vector<std::string> QMXStream::ForceFFmpegAudioFormat(
    const std::vector<std::string>& arguments, const std::string& format) {
  return WithAudioFormat(arguments, format);
}

std::vector<std::string> QMXStream::ForceFFmpegVideoSize(const std::vector<std::string>& arguments,
                                                         bool keepAspect) const {
  return WithPictureSize(arguments, m_metaData,
                         {!m_isHwTranscode && !keepAspect, GetMetaVideoRotate()});
}

bool QMXStream::SaveMonitorPid(int pid, bool wait) const {
  return ReplaceMonitor(Directory(), pid, wait);
}

bool QMXStream::IsFFmpegRun() const {
  if (m_streamKind.empty() || m_streamId.empty()) {
    ORVO_LOG("Bad parameter");
    return false;
  }
  return Directory().IsMonitored();
}

}  // namespace LibOrvoQMX
