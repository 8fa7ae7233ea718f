#include "transcoder/film_clock.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "transcoder/film_bytes.h"
#include "transcoder/transport_stream.h"

namespace orvo::transcoder {
namespace {

constexpr int kPlaces = 32;
constexpr size_t kLook = 131072;  // bytes; the clock is stated ten times a second
constexpr size_t kPacketsToCheck = 5;
constexpr unsigned char kSyncByte = 0x47;
constexpr int64_t kClockTurn = INT64_C(1) << 33;
constexpr int64_t kLeastJump = 30 * kTransportClockRate;
constexpr int64_t kUnevenness = 20;  // of the bit rate, before it is taken for a jump

using Bytes = std::vector<unsigned char>;

bool IsAligned(const Bytes& bytes, size_t start, size_t stride) {
  for (size_t i = 0; i < kPacketsToCheck; ++i) {
    if (start + i * stride >= bytes.size() || bytes[start + i * stride] != kSyncByte) {
      return false;
    }
  }
  return true;
}

// The clock that a packet states, in ticks.
std::optional<int64_t> Clock(const unsigned char* packet) {
  const bool states = (packet[3] & 0x20) != 0 && packet[4] >= 7 && (packet[5] & 0x10) != 0;
  if (!states) {
    return std::nullopt;
  }
  return (static_cast<int64_t>(packet[6]) << 25) | (packet[7] << 17) | (packet[8] << 9) |
         (packet[9] << 1) | (packet[10] >> 7);
}

std::optional<int64_t> FirstClock(const Bytes& bytes, size_t start, size_t stride) {
  for (size_t i = start; i + kPacketSize <= bytes.size(); i += stride) {
    const auto clock = bytes[i] == kSyncByte ? Clock(bytes.data() + i) : std::nullopt;
    if (clock) {
      return clock;
    }
  }
  return std::nullopt;
}

std::optional<int64_t> ClockIn(const Bytes& bytes) {
  for (const size_t stride : {188, 192, 204}) {
    for (size_t start = 0; start < stride; ++start) {
      if (IsAligned(bytes, start, stride)) {
        return FirstClock(bytes, start, stride);
      }
    }
  }
  return std::nullopt;
}

std::vector<int64_t> ClocksOf(const FilmBytes& film) {
  std::vector<int64_t> clocks;
  for (int i = 0; i < kPlaces; ++i) {
    const std::string place = film.At(film.Size() / kPlaces * i, kLook);
    if (const auto clock = ClockIn({place.begin(), place.end()})) {
      clocks.push_back(*clock);
    }
  }
  return clocks;
}

// From each clock to the next, the short way round.
std::vector<int64_t> Steps(const std::vector<int64_t>& clocks) {
  std::vector<int64_t> steps;
  for (size_t i = 1; i < clocks.size(); ++i) {
    const int64_t ahead = (clocks[i] - clocks[i - 1] + kClockTurn) % kClockTurn;
    steps.push_back(ahead >= kClockTurn / 2 ? ahead - kClockTurn : ahead);
  }
  return steps;
}

}  // namespace

bool ClockJumps(const std::string& path) {
  std::vector<int64_t> steps = Steps(ClocksOf(FilmBytes(path)));
  if (steps.empty()) {
    return false;
  }
  std::sort(steps.begin(), steps.end());
  const int64_t usual = std::max<int64_t>(0, steps[steps.size() / 2]);
  return steps.front() < -kTransportClockRate || steps.back() > kLeastJump + kUnevenness * usual;
}

}  // namespace orvo::transcoder
