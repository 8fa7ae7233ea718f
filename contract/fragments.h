// The lengths and names of a film's pieces. The library, the request program and the transcoder
// share these definitions.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace orvo {

// The clock of Smooth Streaming: 100 ns.
inline constexpr int64_t kTicksPerSecond = 10'000'000;

// The length of a Smooth Streaming fragment and of an HLS segment, in seconds. Copied video can be
// cut only at its own key frames, so its segments are longer.
inline constexpr int kFragmentSeconds = 5;
inline constexpr int kCopiedSegmentSeconds = 8;
inline constexpr int64_t kTicksPerFragment = kFragmentSeconds * kTicksPerSecond;

enum class Track { kVideo, kAudio };

constexpr const char* NameOf(Track track) {
  return track == Track::kVideo ? "video" : "audio";
}

// The file name of a Smooth Streaming fragment. `start` is in ticks.
inline std::string FragmentName(Track track, int64_t start) {
  return std::string("Fragments(") + NameOf(track) + "=" + std::to_string(start) + ")";
}

// The folder of the fragments of one bit rate. `rate` is in bit/s, in decimal.
inline std::string FragmentFolder(const std::string& rate) {
  return "QualityLevels(" + rate + ")";
}

// A Smooth Streaming fragment. The text of its id is "QualityLevels(RATE)/Fragments(TYPE=START)",
// which is also the end of its path.
struct FragmentId {
  std::string rate;  // bit/s, in decimal
  Track track = Track::kVideo;
  int64_t start = 0;  // ticks

  std::string Text() const { return FragmentFolder(rate) + "/" + FragmentName(track, start); }
  int64_t Number() const { return start / kTicksPerFragment; }

  // Reads an id. Returns nothing if `text` is not exactly such an id.
  static std::optional<FragmentId> Parse(std::string_view text) {
    int64_t rate = 0;
    FragmentId id;
    if (!Skip(text, "QualityLevels(") || !SkipNumber(text, rate) || !Skip(text, ")/Fragments(")) {
      return std::nullopt;
    }
    id.track = Skip(text, "audio=") ? Track::kAudio : Track::kVideo;
    const bool isNamed = id.track == Track::kAudio || Skip(text, "video=");
    if (!isNamed || !SkipNumber(text, id.start) || text != ")") {
      return std::nullopt;
    }
    id.rate = std::to_string(rate);
    return id;
  }

 private:
  // Removes `token` from the front of `text`. Returns false if `text` does not begin with it.
  static bool Skip(std::string_view& text, std::string_view token) {
    if (text.substr(0, token.size()) != token) {
      return false;
    }
    text.remove_prefix(token.size());
    return true;
  }
  // The same for a number that is 0 or more.
  static bool SkipNumber(std::string_view& text, int64_t& number) {
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = parsed.ec == std::errc() && text.front() != '-';
    text.remove_prefix(static_cast<size_t>(parsed.ptr - text.data()));
    return isNumber;
  }
};

}  // namespace orvo
