// Subtitle files. The first letter of the input names the reader.
#include <algorithm>

#include "fuzz/fuzz.h"
#include "webapi/subtitles/subtitle_formats.h"
#include "webapi/subtitles/webvtt.h"

namespace {

using webapi::Cue;

constexpr size_t kMostBytesPerByte = 8;

std::vector<Cue> Parse(char reader, const std::string& text) {
  switch (reader) {
    case 's':
      return webapi::ParseSrt(text);
    case 'a':
      return webapi::ParseScript(text);
    case 'm':
      return webapi::ParseSami(text);
    default:
      return {};
  }
}

// A page gets nothing but these three tags, each closed in its order.
void CheckMarkup(const std::string& text) {
  std::string open;
  for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
    const bool closes = text.compare(at + 1, 1, "/") == 0;
    const std::string tag = text.substr(at + (closes ? 2 : 1), 2);
    fuzz::Demand(tag == "b>" || tag == "i>" || tag == "u>");
    if (closes) {
      fuzz::Demand(!open.empty() && open.back() == tag[0]);
      open.pop_back();
    } else {
      fuzz::Demand(open.find(tag[0]) == std::string::npos);
      open.push_back(tag[0]);
    }
  }
  fuzz::Demand(open.empty());
}

void CheckCue(const Cue& cue) {
  fuzz::Demand(0 <= cue.start && cue.start < cue.end && !cue.text.empty());
  fuzz::Demand(cue.text.find("\n\n") == std::string::npos &&
               cue.text.find('\r') == std::string::npos);
  fuzz::Demand(cue.text.find("-->") == std::string::npos);
  constexpr size_t kLongestSettings = 60;
  fuzz::Demand(cue.settings.size() <= kLongestSettings &&
               cue.settings.find_first_of("<>\r\n") == std::string::npos);
  CheckMarkup(cue.text);
}

bool SameCue(const Cue& left, const Cue& right) {
  return left.start == right.start && left.end == right.end && left.settings == right.settings &&
         left.text == right.text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const std::string text = fuzz::TextOf(data + 1, size - 1);
  const auto cues = Parse(static_cast<char>(data[0]), text);
  std::for_each(cues.begin(), cues.end(), CheckCue);
  fuzz::Demand(std::is_sorted(cues.begin(), cues.end(), [](const Cue& left, const Cue& right) {
    return left.start < right.start;
  }));
  const std::string written = webapi::WriteWebVtt(cues);
  fuzz::Demand(written.size() <= kMostBytesPerByte * size + webapi::WriteWebVtt({}).size());
  const auto again = webapi::ParseWebVtt(written);
  fuzz::Demand(std::equal(cues.begin(), cues.end(), again.begin(), again.end(), SameCue));
  // A stored track may be damaged.
  const auto damaged = webapi::ParseWebVtt(text);
  fuzz::Demand(webapi::Slice(damaged, 0, 1).size() <= damaged.size());
  return 0;
}
