#include "transcoder/film_index.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "transcoder/film_bytes.h"

namespace orvo::transcoder {
namespace {

// A transport packet: what precedes its sync byte, and its whole length.
struct PacketLayout {
  size_t before;
  size_t length;
};

constexpr auto kPacketLayouts = std::to_array<PacketLayout>({
    {0, 188},  // plain
    {4, 192},  // with a time stamp before each packet
    {0, 204},  // with error correction behind each packet
});
constexpr size_t kLook = 1024;  // bytes
constexpr char kSyncByte = 0x47;
constexpr size_t kPacketsToCheck = 5;
constexpr std::string_view kProgramStreamStart("\0\0\1\xBA", 4);

bool HasLayout(const std::string& start, const PacketLayout& layout) {
  for (size_t i = 0; i < kPacketsToCheck; ++i) {
    const size_t position = layout.before + i * layout.length;
    if (position >= start.size() || start[position] != kSyncByte) {
      return false;
    }
  }
  return true;
}

}  // namespace

bool LacksIndex(const std::string& path) {
  const std::string start = FilmBytes(path).At(0, kLook);
  return start.rfind(kProgramStreamStart, 0) == 0 ||
         std::any_of(kPacketLayouts.begin(), kPacketLayouts.end(),
                     [&](const PacketLayout& layout) { return HasLayout(start, layout); });
}

}  // namespace orvo::transcoder
