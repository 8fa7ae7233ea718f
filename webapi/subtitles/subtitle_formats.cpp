#include "webapi/subtitles/subtitle_formats.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <map>
#include <string>

#include "webapi/subtitles/cue_text.h"
#include "webapi/subtitles/subtitle_markup.h"

namespace webapi {
namespace {

constexpr HtmlRules kSrtRules = {.keepUnknown = true, .collapseSpace = false};
constexpr HtmlRules kSamiRules = {.keepUnknown = false, .collapseSpace = true};

// The picture size of scripts that do not name one.
constexpr int kUsualWidth = 384;
constexpr int kUsualHeight = 288;
constexpr int kLargestSize = 100000;

// The duration of the last text of a SAMI file, which has no end time.
constexpr int64_t kLastCueMilliseconds = 5000;

std::string_view Trimmed(std::string_view text) {
  const size_t first = std::min(text.find_first_not_of(" \t\r\n"), text.size());
  text.remove_prefix(first);
  text.remove_suffix(text.size() - (text.find_last_not_of(" \t\r\n") + 1));
  return text;
}

bool IsNumber(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](unsigned char c) { return std::isdigit(c) != 0; });
}

// The number at the front of `text`, or `otherwise`.
int64_t NumberIn(std::string_view text, int64_t otherwise) {
  int64_t number = otherwise;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

void Complete(Cue& cue, CueText& text, const Placement& placement) {
  cue.settings = CueSettings(placement, text.Lines());
  cue.text = text.Finish();
}

// --- SRT

void CompleteSrt(Cue& cue, const std::vector<std::string_view>& lines) {
  ScriptOverrides overrides(ScriptStyle{}, kUsualWidth, kUsualHeight);
  CueText text;
  for (const std::string_view line : lines) {
    PutHtml(line, kSrtRules, &overrides, text);
    text.Break();
  }
  Complete(cue, text, overrides.Where());
}

// --- Scripts

// The columns of a section: names in the order of its "Format:" line.
class Columns {
 public:
  explicit Columns(std::string_view names) { Read(names); }

  void Read(std::string_view names) {
    names_.clear();
    while (!names.empty()) {
      const size_t comma = std::min(names.find(','), names.size());
      names_.emplace_back(Trimmed(names.substr(0, comma)));
      names.remove_prefix(std::min(names.size(), comma + 1));
    }
  }

  // A row's value in a column; "" if there is none. The last column has the rest of the row, with
  // its commas.
  std::string_view Value(std::string_view row, std::string_view name) const {
    for (size_t i = 0; i < names_.size(); ++i) {
      const bool isLast = i + 1 == names_.size();
      const size_t comma = isLast ? row.size() : std::min(row.find(','), row.size());
      if (names_[i] == name) {
        return isLast ? row : Trimmed(row.substr(0, comma));
      }
      row.remove_prefix(std::min(row.size(), comma + 1));
    }
    return "";
  }

 private:
  std::vector<std::string> names_;
};

constexpr char kStyleColumns[] =
    "Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, "
    "Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, "
    "Alignment, MarginL, MarginR, MarginV, Encoding";
constexpr char kEventColumns[] =
    "Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text";

class ScriptReader {
 public:
  std::vector<Cue> Read(std::string_view file) {
    while (!file.empty()) {
      const std::string_view line = Trimmed(TakeLine(file));
      if (!line.empty() && line.front() == '[') {
        StartSection(line);
      } else if (const size_t colon = line.find(':'); colon != std::string_view::npos) {
        (this->*readRow_)(line.substr(0, colon), line.substr(colon + 1));
      }
    }
    return std::move(cues_);
  }

 private:
  using RowReader = void (ScriptReader::*)(std::string_view name, std::string_view value);

  void StartSection(std::string_view title) {
    struct Section {
      std::string_view title;
      RowReader read;
    };
    static constexpr std::array kSections = {
        Section{"[Script Info]", &ScriptReader::ReadInfo},
        Section{"[V4+ Styles]", &ScriptReader::ReadStyle},
        Section{"[V4 Styles]", &ScriptReader::ReadStyle},
        Section{"[Events]", &ScriptReader::ReadEvent},
    };
    readRow_ = &ScriptReader::Ignore;
    for (const Section& section : kSections) {
      if (BeginsWith(title, section.title)) {
        readRow_ = section.read;
      }
    }
    isOldStyle_ = isOldStyle_ || BeginsWith(title, "[V4 Styles]");
  }

  void Ignore(std::string_view /*name*/, std::string_view /*value*/) {}

  void ReadInfo(std::string_view name, std::string_view value) {
    const int size =
        static_cast<int>(std::clamp<int64_t>(NumberIn(Trimmed(value), 0), 0, kLargestSize));
    if (name == "PlayResX" && size > 0) {
      width_ = size;
    } else if (name == "PlayResY" && size > 0) {
      height_ = size;
    }
  }

  void ReadStyle(std::string_view name, std::string_view value) {
    if (name == "Format") {
      styleColumns_.Read(value);
    } else if (name == "Style") {
      const auto isSet = [&](const char* column) {
        return NumberIn(styleColumns_.Value(value, column), 0) != 0;
      };
      const int alignment = static_cast<int>(
          std::clamp<int64_t>(NumberIn(styleColumns_.Value(value, "Alignment"), 0), 0, 11));
      ScriptStyle& style = styles_[std::string(StyleName(styleColumns_.Value(value, "Name")))];
      style = {.bold = isSet("Bold"),
               .italic = isSet("Italic"),
               .underline = isSet("Underline"),
               .alignment = isOldStyle_ ? LegacyAlignment(alignment) : alignment % 10};
    }
  }

  void ReadEvent(std::string_view name, std::string_view value) {
    if (name == "Format") {
      eventColumns_.Read(value);
    } else if (name == "Dialogue") {
      ReadDialogue(value);
    }
  }

  void ReadDialogue(std::string_view row) {
    Cue cue;
    std::string_view start = eventColumns_.Value(row, "Start");
    std::string_view end = eventColumns_.Value(row, "End");
    cue.start = TakeTime(start);
    cue.end = TakeTime(end);
    if (cue.start < 0 || cue.end < 0) {
      return;
    }
    const auto style = styles_.find(std::string(StyleName(eventColumns_.Value(row, "Style"))));
    ScriptOverrides overrides(style == styles_.end() ? ScriptStyle{} : style->second, width_,
                              height_);
    CueText text;
    PutScript(eventColumns_.Value(row, "Text"), overrides, text);
    Complete(cue, text, overrides.Where());
    cues_.push_back(std::move(cue));
  }

  // Some events have a star before the name.
  static std::string_view StyleName(std::string_view name) {
    name.remove_prefix(std::min(name.find_first_not_of('*'), name.size()));
    return name;
  }

  RowReader readRow_ = &ScriptReader::Ignore;
  bool isOldStyle_ = false;
  int width_ = kUsualWidth;
  int height_ = kUsualHeight;
  Columns styleColumns_{kStyleColumns};
  Columns eventColumns_{kEventColumns};
  std::map<std::string, ScriptStyle> styles_;
  std::vector<Cue> cues_;
};

// --- SAMI

// The next position of `word` in `text`, ignoring case.
size_t FindWord(std::string_view text, std::string_view word, size_t from) {
  const auto same = [](unsigned char left, unsigned char right) {
    return std::tolower(left) == std::tolower(right);
  };
  const auto begin = text.begin() + static_cast<ptrdiff_t>(std::min(from, text.size()));
  const auto found = std::search(begin, text.end(), word.begin(), word.end(), same);
  return found == text.end() ? std::string_view::npos : static_cast<size_t>(found - text.begin());
}

// The value of a tag's attribute without its quotes; "" if there is none.
std::string_view Attribute(std::string_view tag, std::string_view name) {
  const size_t found = FindWord(tag, name, 0);
  if (found == std::string_view::npos) {
    return "";
  }
  std::string_view value = Trimmed(tag.substr(found + name.size()));
  if (value.empty() || value.front() != '=') {
    return "";
  }
  value = Trimmed(value.substr(1));
  value.remove_prefix(std::min(value.find_first_not_of("\"'"), value.size()));
  return value.substr(0, value.find_first_of("\"' \t\r\n<>"));
}

// Splits `text` before each occurrence of `word`. Leaves out the text before the first.
std::vector<std::string_view> SplitBefore(std::string_view text, std::string_view word) {
  std::vector<std::string_view> parts;
  size_t start = FindWord(text, word, 0);
  while (start != std::string_view::npos) {
    const size_t next = FindWord(text, word, start + word.size());
    parts.push_back(text.substr(start, next == std::string_view::npos ? next : next - start));
    start = next;
  }
  return parts;
}

std::string_view TagOf(std::string_view part) {
  return part.substr(0, part.find('>'));
}

std::string_view AfterTag(std::string_view part) {
  return part.substr(std::min(TagOf(part).size() + 1, part.size()));
}

class SamiReader {
 public:
  std::vector<Cue> Read(std::string_view file) {
    for (const std::string_view part : SplitBefore(file, "<sync")) {
      ReadInstant(part);
    }
    return Ended();
  }

 private:
  void ReadInstant(std::string_view part) {
    const int64_t time = NumberIn(Attribute(TagOf(part), "start"), -1);
    if (time < 0 || time > kLastInstant) {
      return;
    }
    const auto paragraphs = SplitBefore(AfterTag(part), "<p");
    if (paragraphs.empty()) {
      Add(time, "", AfterTag(part));
    }
    for (const std::string_view paragraph : paragraphs) {
      std::string language(Attribute(TagOf(paragraph), "class"));
      std::transform(language.begin(), language.end(), language.begin(),
                     [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
      Add(time, language, AfterTag(paragraph));
    }
  }

  // A text that has only blanks ends the previous text.
  void Add(int64_t time, const std::string& language, std::string_view html) {
    CueText text;
    PutHtml(html, kSamiRules, nullptr, text);
    Cue cue;
    cue.start = time;
    cue.text = text.Finish();
    if (cue.text == kNoBreakSpace) {
      cue.text.clear();
    }
    if (first_.empty() && !cue.text.empty()) {
      first_ = language;
    }
    cues_[language].push_back(std::move(cue));
  }

  std::vector<Cue> Ended() {
    std::vector<Cue> cues = std::move(cues_[first_]);
    std::stable_sort(cues.begin(), cues.end(),
                     [](const Cue& left, const Cue& right) { return left.start < right.start; });
    for (size_t i = 0; i < cues.size(); ++i) {
      const bool isLast = i + 1 == cues.size();
      cues[i].end = isLast ? cues[i].start + kLastCueMilliseconds : cues[i + 1].start;
    }
    return cues;
  }

  static constexpr int64_t kLastInstant = int64_t{1000} * 3600 * 1000;
  static constexpr std::string_view kNoBreakSpace = "\xc2\xa0";

  std::string first_;  // the language to show
  std::map<std::string, std::vector<Cue>> cues_;
};

}  // namespace

std::vector<Cue> ParseSrt(std::string_view file) {
  std::vector<Cue> cues;
  std::vector<std::string_view> lines;  // of the cue that is being read
  while (!file.empty()) {
    const std::string_view line = TakeLine(file);
    std::string_view rest = line;
    Cue next;
    if (!TakeTiming(rest, next)) {
      lines.push_back(line);
      continue;
    }
    // A text may contain empty lines. Only the number before the next time marks its end.
    if (!lines.empty() && IsNumber(Trimmed(lines.back()))) {
      lines.pop_back();
    }
    if (!cues.empty()) {
      CompleteSrt(cues.back(), lines);
    }
    lines.clear();
    cues.push_back(next);
  }
  if (!cues.empty()) {
    CompleteSrt(cues.back(), lines);
  }
  Tidy(cues);
  return cues;
}

std::vector<Cue> ParseScript(std::string_view file) {
  std::vector<Cue> cues = ScriptReader().Read(file);
  Tidy(cues);
  return cues;
}

std::vector<Cue> ParseSami(std::string_view file) {
  std::vector<Cue> cues = SamiReader().Read(file);
  Tidy(cues);
  return cues;
}

SubtitleParser ParserFor(std::string_view ending) {
  struct Format {
    std::string_view ending;
    SubtitleParser parse;
  };
  static constexpr std::array kFormats = {
      Format{"srt", ParseSrt},
      Format{"ssa", ParseScript},
      Format{"ass", ParseScript},
      Format{"smi", ParseSami},
  };
  for (const Format& format : kFormats) {
    if (ending.size() == format.ending.size() && BeginsWith(ending, format.ending)) {
      return format.parse;
    }
  }
  return nullptr;
}

}  // namespace webapi
