// Opening an HLS stream: its playlists. Its other tasks have files of their own.
#include "stream/http_live_stream.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "platform/log.h"
#include "platform/plat.h"
#include "util/qmxutils.h"
#include "util/system_files.h"

namespace LibOrvoQMX {
namespace {

constexpr char kKind[] = "HLS";
// Copied video can be cut at its own key frames only, so its segments are longer.
constexpr int kRemuxSegmentSeconds = 8;
constexpr int kTranscodeSegmentSeconds = 5;

bool IsAppleTv10(const char* userAgent) {
  const std::string agent = userAgent != nullptr ? userAgent : "";
  return agent.find("Apple TV") != std::string::npos && agent.find("OS 10") != std::string::npos;
}

}  // namespace

HttpLiveStream::HttpLiveStream(const std::string& streamId) : AdaptStream(streamId, kKind) {}

HttpLiveStream::HttpLiveStream(const QMXMetaData& plan) : AdaptStream(plan, kKind) {}

HttpLiveStream::~HttpLiveStream() = default;

bool HttpLiveStream::Init(const Json::Value& request, const Json::Value& options,
                          const std::string& audioId, const std::string& audioFormat) {
  if (!InitAdaptStream(request, audioId)) {
    return false;
  }
  m_hasSubtitle = options.isObject() && options.isMember("subtitle_id");
  if (!SaveAudioFormat(audioFormat) || (m_hasSubtitle && !GenSubtitlePlaylists(request, options))) {
    return FailInit();
  }
  if (!GenPlaylist(request, MANIFEST_TYPE_VIDEO)) {
    ORVO_LOG("Failed to generate video m3u8 playlist for HLS [file path=%s]",
             m_metaData.GetFilePath().c_str());
    return FailInit();
  }
  return MarkAppleTv() || FailInit();
}

bool HttpLiveStream::FailInit() {
  RemoveTransDir();
  return false;
}

bool HttpLiveStream::SaveAudioFormat(const std::string& audioFormat) const {
  const std::string path = GetQMXFileFullPath("audio_format");
  if (audioFormat.empty() || SaveFile(path, audioFormat)) {
    return true;
  }
  ORVO_LOG("Failed to save audio format [%s] in [%s]", audioFormat.c_str(), path.c_str());
  return false;
}

bool HttpLiveStream::GenSubtitlePlaylists(const Json::Value& request, const Json::Value& options) {
  const std::string source = m_metaData.GetFilePath();
  if (!GenIndexPlaylist(request, options)) {
    ORVO_LOG("Failed to generate index m3u8 video playlist for HLS [file path=%s]", source.c_str());
    return false;
  }
  if (!GenPlaylist(options, MANIFEST_TYPE_SUBTITLE)) {
    ORVO_LOG("Failed to generate subtitle m3u8 playlist for HLS [file path=%s]", source.c_str());
    return false;
  }
  return true;
}

bool HttpLiveStream::MarkAppleTv() const {
  if (!IsAppleTv10(std::getenv("HTTP_USER_AGENT")) ||
      SaveFile(GetQMXFileFullPath("appletv_status"), "Init")) {
    return true;
  }
  ORVO_LOG("Failed to generate stat file for apple tv 10");
  return false;
}

bool HttpLiveStream::GenPlaylist(const Json::Value& request, ManifestType type) {
  const bool isVideo = type == MANIFEST_TYPE_VIDEO;
  const std::string url = isVideo ? GetStreamURL(request) : GetSubtitleURL(request);
  const auto duration = static_cast<int>(m_metaData.GetDuration());
  if (url.empty() || m_streamId.empty() || duration <= 0) {
    return false;
  }
  HLSHelper manifest(GetQMXFileFullPath(PlaylistName(type)), type, url);
  if (!manifest.is_open()) {
    return false;
  }
  bool isPlanned = false;
  if (isVideo) {
    manifest.SetFragmentIdQuote(IsWebapi5(request) ? "%22" : "");
    ForgetPlan();
    isPlanned = IsPreAnalysisAvailable() && m_planner.WriteManifest(manifest);
  }
  if (!isPlanned) {
    WriteManifestByFixedSegmentTime(manifest, duration);
  }
  return !isVideo || !m_isRemux || KeepPlan(isPlanned);
}

std::string HttpLiveStream::KeptPlanPath() const {
  return GetQMXFileFullPath("pre_analysis");
}

void HttpLiveStream::ForgetPlan() const {
  unlink(KeptPlanPath().c_str());
}

bool HttpLiveStream::KeepPlan(bool isPlanned) const {
  const std::string path = KeptPlanPath();
  const std::string aside = path + ".new";
  // A result without key frames makes no plan.
  const auto& plan = isPlanned ? m_planner : preprocess::PreprocessHelper();
  if (plan.SaveResult(aside) && rename(aside.c_str(), path.c_str()) == 0) {
    return true;
  }
  unlink(aside.c_str());
  return false;
}

std::string HttpLiveStream::PlaylistName(ManifestType type) const {
  if (type == MANIFEST_TYPE_SUBTITLE) {
    return "subtitle.m3u8.tpl";
  }
  return m_hasSubtitle ? "video.m3u8" : m_streamId + ".m3u8";
}

void HttpLiveStream::WriteManifestByFixedSegmentTime(HLSHelper& manifest, int duration) const {
  const int length = SegmentLength();
  manifest.WriteHeader(length);
  const int rest = duration % length;
  const int count = duration / length + (rest == 0 ? 0 : 1);
  for (int i = 0; i < count; ++i) {
    const bool isShort = i == count - 1 && rest != 0;
    const double start = static_cast<double>(i) * length;
    const double end = start + (isShort ? rest : length);
    manifest.WriteFragmentInfo({end - start, start, end, i});
  }
  if (count == 0) {
    manifest.WriteFragmentInfo({0, 0, 0, 0});
  }
  manifest.WriteEnder();
}

int HttpLiveStream::SegmentLength() const {
  return m_isRemux ? kRemuxSegmentSeconds : kTranscodeSegmentSeconds;
}

bool HttpLiveStream::IsPreAnalysisAvailable() {
  if (!m_isRemux || VerifyFileExist(orvo::SystemPath(kNoPreAnalysisFile), 0) ||
      !m_metaData.IsUsePreAnalysis()) {
    return false;
  }
  if (!m_planner.IsAvailable()) {
    const std::string kept = KeptPlanPath();
    m_planner = !kept.empty() && VerifyFileExist(kept, 0)
                    ? preprocess::PreprocessHelper::FromResult(kept, SegmentLength())
                    : preprocess::PreprocessHelper(m_metaData.GetFilePath(), SegmentLength());
  }
  return m_planner.IsAvailable();
}

}  // namespace LibOrvoQMX
