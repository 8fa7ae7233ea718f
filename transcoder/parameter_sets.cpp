#include "transcoder/parameter_sets.h"

#include <algorithm>
#include <string_view>

namespace orvo::transcoder {
namespace {

constexpr std::string_view kStartCode("\0\0\1", 3);

bool IsSequenceSet(AVCodecID codec, char header) {
  constexpr int kH264Set = 7;
  constexpr int kHevcSet = 33;
  return codec == AV_CODEC_ID_H264   ? (header & 0x1F) == kH264Set
         : codec == AV_CODEC_ID_HEVC ? (header >> 1 & 0x3F) == kHevcSet
                                     : false;
}

}  // namespace

std::string SequenceSets(AVCodecID codec, const AVPacket& packet) {
  std::string_view rest(reinterpret_cast<const char*>(packet.data),
                        static_cast<size_t>(std::max(packet.size, 0)));
  std::string sets;
  for (size_t at = rest.find(kStartCode); at != std::string_view::npos;
       at = rest.find(kStartCode)) {
    rest.remove_prefix(at + kStartCode.size());
    const std::string_view unit = rest.substr(0, rest.find(kStartCode));
    if (!unit.empty() && IsSequenceSet(codec, unit.front())) {
      // A longer start code has a zero before it.
      sets += unit.substr(0, unit.find_last_not_of('\0') + 1);
    }
  }
  return sets;
}

bool AnnouncesChange(const AVPacket& packet) {
  size_t size = 0;
  return AvFunctions::Get()->av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size) !=
         nullptr;
}

}  // namespace orvo::transcoder
