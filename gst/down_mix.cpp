#include "gst/down_mix.h"

#include <gst/audio/audio.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace orvo::gst {
namespace {

constexpr char kHalfPower[] = "0.70710678";

struct Share {
  GstAudioChannelPosition place;
  std::array<const char*, 2> factors;  // in the left and in the right channel
};

// Effects of low frequency are left out.
constexpr Share kShares[] = {
    {GST_AUDIO_CHANNEL_POSITION_MONO, {kHalfPower, kHalfPower}},
    {GST_AUDIO_CHANNEL_POSITION_FRONT_LEFT, {"1", "0"}},
    {GST_AUDIO_CHANNEL_POSITION_FRONT_RIGHT, {"0", "1"}},
    {GST_AUDIO_CHANNEL_POSITION_FRONT_CENTER, {kHalfPower, kHalfPower}},
    {GST_AUDIO_CHANNEL_POSITION_LFE1, {"0", "0"}},
    {GST_AUDIO_CHANNEL_POSITION_REAR_LEFT, {kHalfPower, "0"}},
    {GST_AUDIO_CHANNEL_POSITION_REAR_RIGHT, {"0", kHalfPower}},
    {GST_AUDIO_CHANNEL_POSITION_REAR_CENTER, {"0.5", "0.5"}},
    {GST_AUDIO_CHANNEL_POSITION_SIDE_LEFT, {kHalfPower, "0"}},
    {GST_AUDIO_CHANNEL_POSITION_SIDE_RIGHT, {"0", kHalfPower}},
};

// Null for a place that the table does not have.
const Share* ShareOf(GstAudioChannelPosition place) {
  const auto* const row = std::find_if(std::begin(kShares), std::end(kShares),
                                       [&](const Share& share) { return share.place == place; });
  return row == std::end(kShares) ? nullptr : row;
}

// The factors of all channels in one of the two; empty if one of them has none.
std::string Row(const GstAudioInfo& sound, size_t side) {
  std::string row;
  for (int i = 0; i < GST_AUDIO_INFO_CHANNELS(&sound); ++i) {
    const Share* const share = ShareOf(GST_AUDIO_INFO_POSITION(&sound, i));
    if (share == nullptr) {
      return "";
    }
    row += std::string(row.empty() ? "" : ",") + "(float)" + share->factors[side];
  }
  return "<" + row + ">";
}

}  // namespace

std::string DownMixOf(const GstCaps* caps) {
  constexpr char kConvert[] = "audioconvert";
  GstAudioInfo sound;
  if (caps == nullptr || gst_audio_info_from_caps(&sound, caps) == FALSE ||
      GST_AUDIO_INFO_CHANNELS(&sound) == 2) {
    return kConvert;
  }
  const std::string left = Row(sound, 0);
  const std::string right = Row(sound, 1);
  if (left.empty() || right.empty()) {
    return kConvert;
  }
  // The sum may be louder than whole numbers can tell.
  return std::string(kConvert) + " mix-matrix=\"<" + left + "," + right +
         ">\" ! audio/x-raw,format=F32LE,channels=2,channel-mask=(bitmask)0x3";
}

}  // namespace orvo::gst
