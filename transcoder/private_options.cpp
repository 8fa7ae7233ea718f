#include "transcoder/private_options.h"

#include <algorithm>
#include <array>

namespace orvo::transcoder {
namespace {

constexpr size_t kMostEncoders = 6;

struct PrivateOption {
  std::string_view name;
  std::array<std::string_view, kMostEncoders> encoders;
};

constexpr auto kPrivateOptions = std::to_array<PrivateOption>({
    {"-preset", {"libx264", "libx265", "h264_nvenc", "h264_qsv", "h264_smd"}},
    {"-crf", {"libx264", "libx265", "libvpx", "libvpx-vp9"}},
    {"-tune", {"libx264", "libx265", "h264_nvenc"}},
    {"-x264-params", {"libx264"}},
    {"-x264opts", {"libx264"}},
    {"-deadline", {"libvpx", "libvpx-vp9"}},
    {"-cpu-used", {"libvpx", "libvpx-vp9"}},
    {"-lag-in-frames", {"libvpx", "libvpx-vp9"}},
    {"-auto-alt-ref", {"libvpx", "libvpx-vp9"}},
    {"-row-mt", {"libvpx-vp9"}},
    {"-tile-columns", {"libvpx-vp9"}},
    {"-rc_mode", {"h264_vaapi"}},
    {"-low_power", {"h264_vaapi", "h264_qsv"}},
    {"-async_depth", {"h264_vaapi", "h264_qsv"}},
    {"-look_ahead", {"h264_qsv"}},
    {"-rc", {"h264_nvenc"}},
    {"-cq", {"h264_nvenc"}},
    {"-num_output_buffers", {"h264_v4l2m2m"}},
    {"-num_capture_buffers", {"h264_v4l2m2m"}},
    {"-aac_coder", {"aac"}},
    {"-afterburner", {"libfdk_aac"}},
    {"-signaling", {"libfdk_aac"}},
    {"-eld_sbr", {"libfdk_aac"}},
    {"-vbr", {"libfdk_aac", "libopus"}},
});

}  // namespace

bool TakesOption(std::string_view encoder, std::string_view option) {
  const auto row = std::find_if(kPrivateOptions.begin(), kPrivateOptions.end(),
                                [&](const PrivateOption& known) { return known.name == option; });
  return encoder.empty() || row == kPrivateOptions.end() ||
         std::find(row->encoders.begin(), row->encoders.end(), encoder) != row->encoders.end();
}

}  // namespace orvo::transcoder
