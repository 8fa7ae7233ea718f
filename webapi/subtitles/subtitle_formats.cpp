#include "webapi/subtitles/subtitle_formats.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <map>
#include <string>

#include "util/lower_case.h"
#include "webapi/http/number.h"
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
constexpr int kLastAlignment = 11;

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
  return TakeNumber(text).value_or(otherwise);
}

// Is the number at the front of `text` another one than 0? A style's yes is "-1".
bool IsSet(std::string_view text) {
  return TakeDecimal(text).value_or(0) != 0;
}

void Complete(Cue& cue, CueText& text, const Placement& placement) {
  cue.settings = CueSettings(placement, text.Lines());
  cue.text = text.Finish();
}

// --- SRT

// `lines`: the text below the cue's times, with its line ends.
void CompleteSrt(Cue& cue, std::string_view lines) {
  ScriptOverrides overrides(ScriptStyle{}, kUsualWidth, kUsualHeight);
  CueText text;
  while (!lines.empty()) {
    PutHtml(TakeLine(lines), kSrtRules, &overrides, text);
    text.Break();
  }
  Complete(cue, text, overrides.Where());
}

// --- Scripts

// Removes the text before the first comma, and the comma, from the front of `text`.
std::string_view TakeField(std::string_view& text) {
  const size_t comma = std::min(text.find(','), text.size());
  const std::string_view field = text.substr(0, comma);
  text.remove_prefix(std::min(text.size(), comma + 1));
  return field;
}

// Finds a section's values by the names in its "Format:" line. `Name` is an enumeration of the
// names that are read, and ends with kCount. The work for a row grows with the row, however many
// names the line has.
template <typename Name>
class Columns {
 public:
  static constexpr size_t kCount = static_cast<size_t>(Name::kCount);
  using Names = std::array<std::string_view, kCount>;

  Columns(const Names& wanted, std::string_view format) : wanted_(wanted) { Read(format); }

  void Read(std::string_view format) {
    places_.fill(kNowhere);
    for (count_ = 0; !format.empty(); ++count_) {
      const std::string_view name = Trimmed(TakeField(format));
      const auto wanted = std::find(wanted_.begin(), wanted_.end(), name);
      if (wanted != wanted_.end()) {
        size_t& place = places_[static_cast<size_t>(wanted - wanted_.begin())];
        place = std::min(place, count_);
      }
    }
  }

  // The values of one row; "" for columns that it lacks. The last column has the rest of the row,
  // with its commas.
  class Row {
   public:
    std::string_view operator[](Name name) const { return values_[static_cast<size_t>(name)]; }

   private:
    friend class Columns;
    std::array<std::string_view, kCount> values_;
  };

  Row Split(std::string_view text) const {
    Row row;
    for (size_t i = 0; i < count_ && !text.empty(); ++i) {
      const bool isLast = i + 1 == count_;
      const std::string_view value = isLast ? text : Trimmed(TakeField(text));
      const auto place = std::find(places_.begin(), places_.end(), i);
      if (place != places_.end()) {
        row.values_[static_cast<size_t>(place - places_.begin())] = value;
      }
    }
    return row;
  }

 private:
  static constexpr size_t kNowhere = std::string_view::npos;

  Names wanted_;
  std::array<size_t, kCount> places_{};  // by Name
  size_t count_ = 0;                     // of all names in the line
};

enum class StyleColumn { kName, kBold, kItalic, kUnderline, kAlignment, kCount };
enum class EventColumn { kStart, kEnd, kStyle, kText, kCount };

constexpr char kStyleColumns[] =
    "Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, "
    "Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, "
    "Alignment, MarginL, MarginR, MarginV, Encoding";
constexpr char kEventColumns[] =
    "Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text";

class ScriptReader {
 public:
  std::vector<Cue> Read(std::string_view file) {
    while (!file.empty() && cues_.size() < kMostCues) {
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
      const auto row = styleColumns_.Split(value);
      const int alignment = static_cast<int>(
          std::clamp<int64_t>(NumberIn(row[StyleColumn::kAlignment], 0), 0, kLastAlignment));
      styles_[std::string(StyleName(row[StyleColumn::kName]))] = {
          .bold = IsSet(row[StyleColumn::kBold]),
          .italic = IsSet(row[StyleColumn::kItalic]),
          .underline = IsSet(row[StyleColumn::kUnderline]),
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

  void ReadDialogue(std::string_view text) {
    const auto row = eventColumns_.Split(text);
    Cue cue;
    std::string_view start = row[EventColumn::kStart];
    std::string_view end = row[EventColumn::kEnd];
    cue.start = TakeTime(start);
    cue.end = TakeTime(end);
    if (cue.start < 0 || cue.end < 0) {
      return;
    }
    const auto style = styles_.find(StyleName(row[EventColumn::kStyle]));
    ScriptOverrides overrides(style == styles_.end() ? ScriptStyle{} : style->second, width_,
                              height_);
    CueText shown;
    PutScript(row[EventColumn::kText], overrides, shown);
    Complete(cue, shown, overrides.Where());
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
  Columns<StyleColumn> styleColumns_{{"Name", "Bold", "Italic", "Underline", "Alignment"},
                                     kStyleColumns};
  Columns<EventColumn> eventColumns_{{"Start", "End", "Style", "Text"}, kEventColumns};
  std::map<std::string, ScriptStyle, std::less<>> styles_;
  std::vector<Cue> cues_;
};

// --- SAMI

// The next position of `word` in `text`, ignoring case.
size_t FindWord(std::string_view text, std::string_view word, size_t from) {
  const auto same = [](char left, char right) {
    return orvo::LowerCase(left) == orvo::LowerCase(right);
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

// The rest of `text` from the first `word`; "" if there is none.
std::string_view From(std::string_view text, std::string_view word) {
  return text.substr(std::min(FindWord(text, word, 0), text.size()));
}

// Removes the text up to the second `word` from the front of `text`, which begins with the first.
std::string_view TakePart(std::string_view& text, std::string_view word) {
  const std::string_view part = text.substr(0, FindWord(text, word, word.size()));
  text.remove_prefix(part.size());
  return part;
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
    constexpr std::string_view kInstant = "<sync";
    std::string_view rest = From(file, kInstant);
    while (!rest.empty() && count_ < kMostCues) {
      ReadInstant(TakePart(rest, kInstant));
    }
    return Ended();
  }

 private:
  void ReadInstant(std::string_view part) {
    const int64_t time = NumberIn(Attribute(TagOf(part), "start"), -1);
    if (time < 0 || time > kLastInstant) {
      return;
    }
    constexpr std::string_view kParagraph = "<p";
    std::string_view rest = From(AfterTag(part), kParagraph);
    if (rest.empty()) {
      Add(time, "", AfterTag(part));
    }
    while (!rest.empty() && count_ < kMostCues) {
      const std::string_view paragraph = TakePart(rest, kParagraph);
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
    ++count_;
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

  std::string first_;                             // the language to show
  std::map<std::string, std::vector<Cue>> cues_;  // by language
  size_t count_ = 0;                              // of all languages
};

}  // namespace

std::vector<Cue> ParseSrt(std::string_view file) {
  std::vector<Cue> cues;
  const char* textBegin = file.data();  // of the cue that is being read
  std::string_view previous;            // the last line that has no times
  const auto complete = [&](const char* end) {
    if (!cues.empty()) {
      CompleteSrt(cues.back(), {textBegin, static_cast<size_t>(end - textBegin)});
    }
  };
  while (!file.empty() && cues.size() < kMostCues) {
    const std::string_view line = TakeLine(file);
    std::string_view rest = line;
    Cue next;
    if (!TakeTiming(rest, next)) {
      previous = line;
      continue;
    }
    // A text may contain empty lines. Only the number before the next time marks its end.
    complete(IsNumber(Trimmed(previous)) ? previous.data() : line.data());
    previous = {};
    textBegin = file.data();
    cues.push_back(next);
  }
  complete(file.data());
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
