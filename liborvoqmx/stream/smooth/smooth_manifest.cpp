// These functions log under the source file of the stream class.
#define ORVO_LOG_SOURCE "smooth_stream.cpp"

#include "stream/smooth/smooth_manifest.h"

#include <cstdint>

#include "contract/fragments.h"
#include "platform/log.h"
#include "stream/smooth/smooth_profiles.h"

namespace LibOrvoQMX {
namespace {

using orvo::kFragmentSeconds;
using orvo::kTicksPerSecond;

// The fragments of a film. All except the last have the full length.
struct FragmentPlan {
  explicit FragmentPlan(int seconds)
      : count(seconds / kFragmentSeconds + (seconds % kFragmentSeconds == 0 ? 0 : 1)),
        last(seconds % kFragmentSeconds == 0 ? kFragmentSeconds : seconds % kFragmentSeconds) {}
  int count;
  int last;  // seconds
};

void WriteStreamIndex(std::ostream& manifest, orvo::Track track, const FragmentPlan& plan,
                      const std::string& url, const std::string& qualityLevel) {
  const char* const type = orvo::NameOf(track);
  manifest << "<StreamIndex Type=\"" << type << "\" QualityLevels=\"1\" Chunks=\"" << plan.count
           << "\" Url=\"" << url << "&amp;fragment_id=QualityLevels({bitrate})/Fragments(" << type
           << "={start time})\">\n"
           << qualityLevel;
  for (int i = 0; i < plan.count; ++i) {
    const int length = i == plan.count - 1 ? plan.last : kFragmentSeconds;
    manifest << "<c n=\"" << i << "\" d=\"" << length * kTicksPerSecond << "\" />\n";
  }
  manifest << "</StreamIndex>\n";
}

}  // namespace

bool FindPicture(const QMXMetaData& record, const std::string& requestedHeight,
                 SmoothPicture& picture) {
  const auto ratio = static_cast<double>(record.GetVideoRatio());
  if (requestedHeight.empty() || ratio <= 0) {
    return false;
  }
  const SmoothSize* const found = FindSmoothSize(requestedHeight, ratio);
  if (found == nullptr) {
    ORVO_LOG("Error: Output resolution not support");
    return false;
  }
  picture.width = found->width;
  picture.height = found->height;
  picture.size = picture.width + "x" + picture.height;
  return true;
}

bool FindRendition(const QMXMetaData& record, bool hardware, SmoothRendition& rendition) {
  const std::string key = record.GetProfileKey();
  if (key.empty() || record.GetVideoRatio() <= 0) {
    return false;
  }
  const SmoothProfile* const profile = FindSmoothProfile(hardware, key);
  if (profile == nullptr) {
    ORVO_LOG("Error: such transcoding profile not support for predect manifest");
    return false;
  }
  SmoothPicture& picture = rendition.picture;
  FindPicture(record, profile->requestedHeight, picture);
  if (picture.width.empty() || picture.height.empty()) {
    ORVO_LOG("Failed to calculate transcoding resolution");
    return false;
  }
  rendition.videoBitrate = profile->videoBitrate;
  rendition.audioBitrate = profile->audioBitrate;
  rendition.samplingRate = kSmoothSamplingRate;
  const char* const data = FindSmoothCodecData(hardware, picture.size);
  if (data == nullptr) {
    ORVO_LOG("Error: not support this resolution[%sx%s]", picture.width.c_str(),
             picture.height.c_str());
    return false;
  }
  rendition.codecPrivateData = data;
  return true;
}

void WriteManifestHead(std::ostream& manifest, float seconds) {
  // Single precision, because clients have always got this value.
  manifest << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           << "<SmoothStreamingMedia MajorVersion=\"2\" MinorVersion=\"0\" Duration=\""
           << static_cast<uint64_t>(seconds * static_cast<float>(kTicksPerSecond)) << "\">\n";
}

void WriteManifestBody(std::ostream& manifest, int seconds, const std::string& url,
                       const SmoothRendition& rendition) {
  const FragmentPlan plan(seconds);
  WriteStreamIndex(manifest, orvo::Track::kVideo, plan, url,
                   "<QualityLevel Index=\"0\" Bitrate=\"" + rendition.videoBitrate +
                       "\" FourCC=\"H264\" MaxWidth=\"" + rendition.picture.width +
                       "\" MaxHeight=\"" + rendition.picture.height + "\" CodecPrivateData=\"" +
                       rendition.codecPrivateData + "\" />\n");
  WriteStreamIndex(manifest, orvo::Track::kAudio, plan, url,
                   "<QualityLevel Index=\"0\" Bitrate=\"" + rendition.audioBitrate +
                       "\" FourCC=\"AACL\" SamplingRate=\"" + rendition.samplingRate +
                       "\" Channels=\"2\" BitsPerSample=\"16\" PacketSize=\"4\" AudioTag=\"255\" "
                       "CodecPrivateData=\"1190\" />\n");
  manifest << "</SmoothStreamingMedia>\n";
}

}  // namespace LibOrvoQMX
