#include "transcoder/film_index.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "platform/unique_fd.h"

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
constexpr char kSyncByte = 0x47;
constexpr size_t kPacketsToCheck = 5;
constexpr std::string_view kProgramStreamStart("\0\0\1\xBA", 4);

std::string ReadStart(const std::string& path) {
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return "";
  }
  std::array<char, 1024> buffer;
  const ssize_t count = read(file.Get(), buffer.data(), buffer.size());
  return {buffer.data(), count > 0 ? static_cast<size_t>(count) : 0};
}

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
  const std::string start = ReadStart(path);
  return start.rfind(kProgramStreamStart, 0) == 0 ||
         std::any_of(kPacketLayouts.begin(), kPacketLayouts.end(),
                     [&](const PacketLayout& layout) { return HasLayout(start, layout); });
}

}  // namespace orvo::transcoder
