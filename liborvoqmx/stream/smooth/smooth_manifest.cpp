// The manifest of a Smooth Streaming stream, predicted from tables. Members of the stream, and
// logging under its name.
#define ORVO_LOG_SOURCE "smooth_stream.cpp"

#include <cstdint>
#include <fstream>
#include <limits>

#include "platform/log.h"
#include "stream/smooth/smooth_profiles.h"
#include "stream/smooth_stream.h"

namespace LibOrvoQMX {
namespace {

constexpr int kFragmentSeconds = 5;
constexpr int64_t kUnitsPerSecond = 10000000;

// Fragments of a film of that many seconds: all but the last are of full length.
struct FragmentPlan {
  explicit FragmentPlan(int seconds)
      : count(seconds / kFragmentSeconds + (seconds % kFragmentSeconds == 0 ? 0 : 1)),
        last(seconds % kFragmentSeconds == 0 ? kFragmentSeconds : seconds % kFragmentSeconds) {}
  int count;
  int last;  // seconds
};

void WriteStreamIndex(std::ostream& manifest, const char* type, const FragmentPlan& plan,
                      const std::string& url, const std::string& qualityLevel) {
  manifest << "<StreamIndex Type=\"" << type << "\" QualityLevels=\"1\" Chunks=\"" << plan.count
           << "\" Url=\"" << url << "&amp;fragment_id=QualityLevels({bitrate})/Fragments(" << type
           << "={start time})\">\n"
           << qualityLevel;
  for (int i = 0; i < plan.count; ++i) {
    const int length = i == plan.count - 1 ? plan.last : kFragmentSeconds;
    manifest << "<c n=\"" << i << "\" d=\"" << length * kUnitsPerSecond << "\" />\n";
  }
  manifest << "</StreamIndex>\n";
}

}  // namespace

std::string SmoothStream::GetMainfest() {
  return GetQMXFileFullPath("manifest_predict");
}

bool SmoothStream::GetTransResolution(const std::string& requestedHeight, std::string& width,
                                      std::string& height, std::string& size) const {
  const auto ratio = static_cast<double>(m_metaData.GetVideoRatio());
  if (requestedHeight.empty() || ratio <= 0) {
    return false;
  }
  const SmoothSize* const found = FindSmoothSize(requestedHeight, ratio);
  if (found == nullptr) {
    ORVO_LOG("Error: Output resolution not support");
    return false;
  }
  width = found->width;
  height = found->height;
  size = width + "x" + height;
  return true;
}

bool SmoothStream::ParseHWTransParameter(std::string& width, std::string& height,
                                         std::string& videoBitrate, std::string& audioBitrate,
                                         std::string& samplingRate,
                                         std::string& codecPrivateData) const {
  return ParseParameters(true, width, height, videoBitrate, audioBitrate, samplingRate,
                         codecPrivateData);
}

bool SmoothStream::ParseTransParameter(std::string& width, std::string& height,
                                       std::string& videoBitrate, std::string& audioBitrate,
                                       std::string& samplingRate,
                                       std::string& codecPrivateData) const {
  return ParseParameters(false, width, height, videoBitrate, audioBitrate, samplingRate,
                         codecPrivateData);
}

bool SmoothStream::ParseParameters(bool hardware, std::string& width, std::string& height,
                                   std::string& videoBitrate, std::string& audioBitrate,
                                   std::string& samplingRate, std::string& codecPrivateData) const {
  if (m_profileKey.empty() || m_metaData.GetVideoRatio() <= 0) {
    return false;
  }
  const SmoothProfile* const profile = FindSmoothProfile(hardware, m_profileKey);
  if (profile == nullptr) {
    ORVO_LOG("Error: such transcoding profile not support for predect manifest");
    return false;
  }
  std::string size;
  GetTransResolution(profile->requestedHeight, width, height, size);
  if (width.empty() || height.empty()) {
    ORVO_LOG("Failed to calculate transcoding resolution");
    return false;
  }
  videoBitrate = profile->videoBitrate;
  audioBitrate = profile->audioBitrate;
  samplingRate = kSmoothSamplingRate;
  const char* const data = FindSmoothCodecData(hardware, size);
  if (data == nullptr) {
    ORVO_LOG("Error: not support this resolution[%sx%s]", width.c_str(), height.c_str());
    return false;
  }
  codecPrivateData = data;
  return true;
}

bool SmoothStream::Predict_Manifest(const Json::Value& request) const {
  const std::string url = GetStreamURL(request);
  const auto duration = static_cast<float>(m_metaData.GetDuration());
  if (url.empty() || m_streamId.empty() || m_profileValue.empty() || duration <= 0 ||
      duration >= static_cast<float>(std::numeric_limits<int>::max())) {
    return false;
  }
  std::ofstream manifest(GetQMXFileFullPath("manifest_predict"));
  // In single precision, as clients have always had it.
  manifest << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           << "<SmoothStreamingMedia MajorVersion=\"2\" MinorVersion=\"0\" Duration=\""
           << static_cast<uint64_t>(duration * static_cast<float>(kUnitsPerSecond)) << "\">\n";

  std::string width;
  std::string height;
  std::string videoBitrate;
  std::string audioBitrate;
  std::string samplingRate;
  std::string codecPrivateData;
  if (!manifest.is_open() || !ParseParameters(m_isHwTranscode, width, height, videoBitrate,
                                              audioBitrate, samplingRate, codecPrivateData)) {
    return false;
  }
  const FragmentPlan plan(static_cast<int>(duration));
  WriteStreamIndex(manifest, "video", plan, url,
                   "<QualityLevel Index=\"0\" Bitrate=\"" + videoBitrate +
                       "\" FourCC=\"H264\" MaxWidth=\"" + width + "\" MaxHeight=\"" + height +
                       "\" CodecPrivateData=\"" + codecPrivateData + "\" />\n");
  WriteStreamIndex(manifest, "audio", plan, url,
                   "<QualityLevel Index=\"0\" Bitrate=\"" + audioBitrate +
                       "\" FourCC=\"AACL\" SamplingRate=\"" + samplingRate +
                       "\" Channels=\"2\" BitsPerSample=\"16\" PacketSize=\"4\" AudioTag=\"255\" "
                       "CodecPrivateData=\"1190\" />\n");
  manifest << "</SmoothStreamingMedia>\n";
  manifest.close();
  return manifest.good();
}

}  // namespace LibOrvoQMX
