#include "transcoder/first_key.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>

#include "platform/io.h"
#include "platform/unique_fd.h"
#include "transcoder/transport_stream.h"

namespace orvo::transcoder {
namespace {

constexpr char kFile[] = "/first_key_frame";
constexpr char kNewFile[] = "/first_key_frame.new";
constexpr mode_t kMode = 0644;
constexpr int64_t kLatest = 600 * kTransportClockRate;  // beyond that the file cannot be right

}  // namespace

std::optional<int64_t> RecallFirstKey(const std::string& folder) {
  const UniqueFd file(
      open((folder + kFile).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  std::array<char, 32> text;
  const ssize_t count = file.IsOpen() ? read(file.Get(), text.data(), text.size()) : 0;
  int64_t ticks = 0;
  if (count <= 0) {
    return std::nullopt;
  }
  const auto [end, error] = std::from_chars(text.data(), text.data() + count, ticks);
  const bool whole = error == std::errc() && end == text.data() + count;
  return whole && ticks >= 0 && ticks <= kLatest ? std::optional(ticks) : std::nullopt;
}

void RememberFirstKey(const std::string& folder, int64_t ticks) {
  const std::string path = folder + kNewFile;
  const UniqueFd file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kMode));
  if (file.IsOpen() && WriteAll(file.Get(), std::to_string(ticks))) {
    (void)rename(path.c_str(), (folder + kFile).c_str());
  }
}

}  // namespace orvo::transcoder
