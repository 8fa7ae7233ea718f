#include "stream/liborvoqmx.h"

#include <unistd.h>

#include <csignal>

#include "platform/log.h"
#include "platform/plat.h"
#include "platform/run_as.h"
#include "policy/argument_helper.h"
#include "policy/platform_utils.h"
#include "policy/profile_traits.h"
#include "policy/registry_watch.h"
#include "policy/trans_loading.h"
#include "util/md5.h"
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
constexpr int kOfflineGivesWaySeconds = 30;

constexpr int kErrorNotWritable = 0x2900;
constexpr int kErrorNoVolume = 0x8300;
constexpr int kErrorNoRoom = 0xDD00;

void AskOfflineConversionToGiveWay() {
  if (!TransLoading().IsOffineConverting()) {
    return;
  }
  const pid_t service = PlatReadPidFile(orvo::SystemPath(kOfflineConversionPidFile));
  if (service > 0) {
    kill(service, SIGUSR1);
  }
  LibMirevo::AskRegistryUntil(
      [](const TransLoading& registry) { return !registry.IsOffineConverting(); },
      kOfflineGivesWaySeconds);
}

}  // namespace

bool GetTmpDir(uint64_t space, const std::string& kind, const std::string& streamId,
               std::string& dir) {
  if (kind.empty() || streamId.empty()) {
    ORVO_LOG("Bad parameter");
    return false;
  }
  dir.clear();
  std::string volume;
  unsigned flags = 0;
  const int found = VolumeAvailGet(space, volume, flags);
  if (found < 0) {
    ORVO_LOG("VolumeAvailGet() failed!! orvoerr=[0x%04X]", static_cast<unsigned>(PlatErrGet()));
    return false;
  }
  if (found == 0) {
    if ((flags & kVolumeNoneWritable) != 0) {
      PlatErrSet(kErrorNotWritable);
    } else {
      PlatErrSet((flags & kVolumeExists) == 0 ? kErrorNoVolume : kErrorNoRoom);
    }
    return false;
  }
  dir = volume + kVolumeTempRoot + "/" + kind + "/" + streamId;
  return libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(dir, 0777);
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
  if (argument.filePath.empty() || argument.streamKind.empty() || argument.profilePath.empty() ||
      argument.profileKey.empty()) {
    return "";
  }
  const Json::Value& args = argument.args;
  const bool isObject = args.isObject();
  const bool joins = isObject && args["stream_id"].isString();
  const std::string streamId =
      joins ? args["stream_id"].asString() : GetRandStreamID(argument.filePath);
  // The name comes from a client. An empty one is refused further down, with an error word.
  if (!streamId.empty() ? !IsPlainName(streamId) : !joins) {
    return "";
  }
  if (!CreateTmpDir(streamId, argument.streamKind, argument.profilePath, argument.profileKey,
                    argument.needSpace)) {
    return kNoSpace;
  }
  const bool hlsHeader = isObject && args["hls_header"].isBool() && args["hls_header"].asBool();
  if (!QMXMetaData::ParserMetaData(argument, streamId, hlsHeader)) {
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
  using libmrv::critical::orvosdk::ORVOFSMkdirPMirevo;
  if (streamId.empty() || streamKind.empty() || profileKey.empty() || profilePath.empty()) {
    return false;
  }
  if (!ORVOFSMkdirPMirevo(StreamKindPath(streamKind), 0777)) {
    return false;
  }
  if (streamKind == "HTTP") {
    return ORVOFSMkdirPMirevo(StreamPath(streamKind, streamId), 0777);
  }
  uint64_t needed = kTranscodeSpace;
  if (streamKind == "HLS" && IsRemux(profilePath, profileKey)) {
    needed = space != 0 ? space : kRemuxSpace;
  }
  return GetVolTmpAndSymlink(needed, streamId, streamKind);
}

bool QMXStream::GetVolTmpAndSymlink(uint64_t space, const std::string& streamId,
                                    const std::string& streamKind) {
  std::string dir;
  if (!GetTmpDir(space, streamKind, streamId, dir)) {
    ORVO_LOG("There are not enough volume space for streaming %s. Need space [%llu bytes]",
             streamKind.c_str(), static_cast<unsigned long long>(space));
    return false;
  }
  const std::string link = StreamPath(streamKind, streamId);
  unlink(link.c_str());
  return symlink(dir.c_str(), link.c_str()) == 0;
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

std::string QMXStream::GetQMXFileFullPath(const std::string& name) const {
  if (m_streamKind.empty() || m_streamId.empty()) {
    return "";
  }
  const std::string directory = StreamPath(m_streamKind, m_streamId);
  return name.empty() ? directory : directory + "/" + name;
}

Json::Value QMXStream::GetFirstVideoInfo() const {
  return m_metaData.GetVideo(0);
}

std::string QMXStream::GetRequestAudioID() const {
  return ReadFile(GetQMXFileFullPath("audio_id"));
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
  const std::string directory = GetQMXFileFullPath("");
  if (!VerifyFileExist(directory, 0)) {
    ORVO_LOG("Can't file tmp file [%s]", directory.c_str());
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
  if (audioId.empty()) {
    return true;
  }
  const std::string path = GetQMXFileFullPath("audio_id");
  if (!SaveFile(path, audioId)) {
    ORVO_LOG("Failed to save audio ID [%s] in [%s]", audioId.c_str(), path.c_str());
    return false;
  }
  return true;
}

bool QMXStream::CheckTransLoading(bool force) {
  if (!force) {
    if (TransLoading().IsOffineConverting()) {
      SetError("TransEnableOfflineConverting");
      return false;
    }
  } else if (!PlatformUtils::GetInst().IsSupportVaapi()) {
    AskOfflineConversionToGiveWay();
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
  if (VerifyFileExist(GetQMXFileFullPath(""), 0)) {
    SaveMonitorPid(0, false);
    RemoveTransDir();
  }
  return true;
}

bool QMXStream::RemoveTransDir() {
  if (!IsPlainName(m_streamId) || m_streamKind.empty()) {
    return false;
  }
  const std::string link = GetQMXFileFullPath("");
  const std::string target = LinkTarget(link);
  if (!target.empty() && VerifyFileExist(target, 0)) {
    IF_RUN_AS(0, 0) {
      PlatExec("/bin/rm", "-rf", target);
    }
  }
  unlink(link.c_str());
  return true;
}

}  // namespace LibOrvoQMX
