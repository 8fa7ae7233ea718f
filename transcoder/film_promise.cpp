#include "transcoder/film_promise.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

#include "contract/stream_files.h"
#include "platform/unique_fd.h"
#include "transcoder/fragment_cutter.h"

namespace orvo::transcoder {
namespace {

constexpr std::string_view kDuration = " Duration=\"";
constexpr int64_t kLongest = 100 * 3600;  // seconds; beyond that the file cannot be right

}  // namespace

std::optional<int> PromisedSeconds(const std::string& folder) {
  const UniqueFd file(
      open((folder + "/" + kManifestFile).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  std::array<char, 512> head;
  const ssize_t count = file.IsOpen() ? read(file.Get(), head.data(), head.size()) : 0;
  const std::string_view text(head.data(), count > 0 ? static_cast<size_t>(count) : 0);
  const size_t found = text.find(kDuration);
  int64_t ticks = 0;
  if (found == std::string_view::npos) {
    return std::nullopt;
  }
  const char* value = text.data() + found + kDuration.size();
  const auto [end, error] = std::from_chars(value, text.data() + text.size(), ticks);
  // The manifest's duration is rounded where the film is long.
  const int64_t seconds = (ticks + kFragmentClockRate / 2) / kFragmentClockRate;
  const bool valid = error == std::errc() && seconds > 0 && seconds <= kLongest;
  return valid ? std::optional(static_cast<int>(seconds)) : std::nullopt;
}

}  // namespace orvo::transcoder
