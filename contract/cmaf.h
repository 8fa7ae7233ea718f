// The plan of a CMAF presentation, and the names of its files. The library, the request program and
// the transcoder share these definitions. docs/cmaf.md describes them.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace orvo {

// The clock of the plan and of all pictures: ticks a second.
inline constexpr int64_t kPlanClock = 90'000;

// The files of a rendition's folder, and of the presentation's, which is the folder above.
inline constexpr char kCmafPlanFile[] = "plan";
inline constexpr char kCmafHeaderFile[] = "init.mp4";
inline constexpr char kUnfinished[] = ".part";

// What is known of the film, in a file beside the plan: words in one line. The first one tells
// whether they can be copied: yes; no, because key frames do not begin closed groups of pictures;
// no, because no index tells all key frames; no, because their size or coding changes; there are
// none. A film whose clock jumps has no plan
// that a run could keep. The second word is the dynamic range of the pictures. The third one is
// there if the film's clock does not begin with 0 and FFmpeg would not count from the film's start,
// but from that of the track that it reads: the film's start on that clock, in microseconds.
inline constexpr char kCmafPicturesFile[] = "pictures";
inline constexpr char kCmafCopied[] = "copied";
inline constexpr char kCmafOpenGroups[] = "open-groups";
inline constexpr char kCmafNoIndex[] = "no-index";
inline constexpr char kCmafNoPicture[] = "no-picture";
inline constexpr char kCmafChanging[] = "changing";
inline constexpr char kCmafClockJumps[] = "clock-jumps";
inline constexpr char kCmafStandardRange[] = "sdr";
inline constexpr char kCmafPq[] = "pq";
inline constexpr char kCmafHlg[] = "hlg";

struct CmafKnowledge {
  std::string copying;
  std::string dynamicRange;
  std::optional<int64_t> clockStart;

  std::string Text() const {
    std::ostringstream words;
    words << copying << " " << dynamicRange;
    if (clockStart) {
      words << " " << *clockStart;
    }
    return words.str();
  }

  // What is missing or damaged is empty.
  static CmafKnowledge Parse(const std::string& text) {
    CmafKnowledge known;
    int64_t start = 0;
    std::istringstream words(text);
    words >> known.copying >> known.dynamicRange;
    if (words >> start) {
      known.clockStart = start;
    }
    return known;
  }
};

// What an earlier analysis has found in the film, where the plan may use it: numbers in ticks from
// the first key frame, one for each key frame and the end of the last picture.
inline constexpr char kCmafKeysFile[] = "keyframes";

// The number of the segment that the rendition's run is making, in decimal.
inline constexpr char kCmafPositionFile[] = "position";

// The name of a complete segment. One that is being written has kUnfinished behind it.
inline std::string CmafSegmentName(int number) {
  char name[32];
  snprintf(name, sizeof(name), "%05d.m4s", number);
  return name;
}

// Whole numbers that are not negative, one a line.
inline std::string CmafNumbers(const std::vector<int64_t>& numbers) {
  std::string text;
  for (const int64_t number : numbers) {
    text += std::to_string(number) + "\n";
  }
  return text;
}

// Returns nothing for a text that is not made of such lines.
inline std::optional<std::vector<int64_t>> ParseCmafNumbers(std::string_view text) {
  std::vector<int64_t> numbers;
  while (!text.empty()) {
    int64_t number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    const auto length = static_cast<size_t>(end.ptr - text.data());
    if (end.ec != std::errc() || number < 0 || length == text.size() || text[length] != '\n') {
      return std::nullopt;
    }
    text.remove_prefix(length + 1);
    numbers.push_back(number);
  }
  return numbers;
}

// The spans of the segments, which are the same in every rendition. All times are ticks of the
// film's own clock, which begins with 0.
struct CmafPlan {
  // The rate of pictures is rate / scale a second.
  int64_t rate = 25;
  int64_t scale = 1;
  int64_t delay = 0;  // how much later than it is decoded the first picture of a segment is shown
  std::vector<int64_t> cuts;  // the starts of the segments, ascending, and the film's end

  int Count() const { return static_cast<int>(cuts.size()) - 1; }
  int64_t Start(int number) const { return cuts[static_cast<size_t>(number)]; }
  int64_t End(int number) const { return cuts[static_cast<size_t>(number) + 1]; }

  // The segment that contains the time; the first or the last one for a time outside the film.
  int At(int64_t time) const {
    const auto after = std::upper_bound(cuts.begin(), cuts.end() - 1, time);
    return std::max(0, static_cast<int>(after - cuts.begin()) - 1);
  }

  // The length of a picture, rounded.
  int64_t Frame() const { return (kPlanClock * scale + rate / 2) / rate; }
  // The number of the picture nearest to a time, and its time, on a grid that begins with the film.
  int64_t PictureAt(int64_t time) const {
    return (time * rate + kPlanClock * scale / 2) / (kPlanClock * scale);
  }
  int64_t TimeOf(int64_t picture) const { return (picture * kPlanClock * scale + rate / 2) / rate; }

  // One number a line: the rate, its scale, the delay, the cuts.
  std::string Text() const { return CmafNumbers({rate, scale, delay}) + CmafNumbers(cuts); }

  // Returns nothing for a text that is no plan.
  static std::optional<CmafPlan> Parse(std::string_view text) {
    constexpr size_t kShortest = 5;
    const auto read = ParseCmafNumbers(text);
    if (!read || read->size() < kShortest) {
      return std::nullopt;
    }
    const std::vector<int64_t>& numbers = *read;
    if (numbers[0] == 0 || numbers[1] == 0 || !std::is_sorted(numbers.begin() + 3, numbers.end())) {
      return std::nullopt;
    }
    return CmafPlan{numbers[0], numbers[1], numbers[2], {numbers.begin() + 3, numbers.end()}};
  }
};

}  // namespace orvo
