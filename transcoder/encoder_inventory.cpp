#include "transcoder/encoder_inventory.h"

#include <algorithm>
#include <array>
#include <utility>

namespace orvo::transcoder {
namespace {

// Hardware encoders that FFmpeg lists on any machine, and the device that each one opens.
struct Device {
  std::string_view encoder;
  const char* node;
};

constexpr auto kDevices = std::to_array<Device>({
    {"h264_vaapi", "/dev/dri/renderD128"},
    {"h264_qsv", "/dev/dri/renderD128"},
    {"h264_nvenc", "/dev/nvidia0"},
    {"h264_v4l2m2m", "/dev/video11"},
    {"h264_omx", "/dev/vchiq"},
});

}  // namespace

EncoderInventory::EncoderInventory(std::string executable, std::string cacheFile,
                                   std::function<bool(const char* node)> nodeExists)
    : encoders_(std::move(executable), "-encoders", std::move(cacheFile)),
      nodeExists_(std::move(nodeExists)) {}

bool EncoderInventory::CanEncode(std::string_view encoder) {
  const auto device = std::find_if(kDevices.begin(), kDevices.end(),
                                   [&](const Device& row) { return row.encoder == encoder; });
  const bool lacksDevice = device != kDevices.end() && !nodeExists_(device->node);
  return !lacksDevice && encoders_.Has(encoder);
}

}  // namespace orvo::transcoder
