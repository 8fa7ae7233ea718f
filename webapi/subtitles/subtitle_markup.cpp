#include "webapi/subtitles/subtitle_markup.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "util/lower_case.h"
#include "webapi/http/number.h"

namespace webapi {
namespace {

constexpr std::string_view kNoBreakSpace = "\xc2\xa0";

// The approximate height of a line of text in a player, as a share of the picture's height.
constexpr double kLineHeight = 0.06;

bool IsLetter(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

// --- Entities

struct Entity {
  std::string_view name;
  std::string_view text;
};
constexpr std::array kEntities = {
    Entity{"nbsp", kNoBreakSpace},
    Entity{"amp", "&"},
    Entity{"lt", "<"},
    Entity{"gt", ">"},
    Entity{"quot", "\""},
    Entity{"apos", "'"},
    Entity{"lrm", "\xe2\x80\x8e"},
    Entity{"rlm", "\xe2\x80\x8f"},
    Entity{"hellip", "\xe2\x80\xa6"},
    Entity{"ndash", "\xe2\x80\x93"},
    Entity{"mdash", "\xe2\x80\x94"},
    Entity{"lsquo", "\xe2\x80\x98"},
    Entity{"rsquo", "\xe2\x80\x99"},
    Entity{"ldquo", "\xe2\x80\x9c"},
    Entity{"rdquo", "\xe2\x80\x9d"},
    Entity{"laquo", "\xc2\xab"},
    Entity{"raquo", "\xc2\xbb"},
    Entity{"copy", "\xc2\xa9"},
    Entity{"reg", "\xc2\xae"},
    Entity{"iexcl", "\xc2\xa1"},
    Entity{"iquest", "\xc2\xbf"},
};
constexpr size_t kLongestEntity = 10;

std::string Utf8(uint32_t code) {
  const auto tail = [code](int shift) {
    return static_cast<char>(0x80 | ((code >> shift) & 0x3f));
  };
  if (code < 0x80) {
    return {static_cast<char>(code)};
  }
  if (code < 0x800) {
    return {static_cast<char>(0xc0 | (code >> 6)), tail(0)};
  }
  if (code < 0x10000) {
    return {static_cast<char>(0xe0 | (code >> 12)), tail(6), tail(0)};
  }
  return {static_cast<char>(0xf0 | (code >> 18)), tail(12), tail(6), tail(0)};
}

// The character of "#38" or "#x26"; "" for any other text.
std::string NumericEntity(std::string_view name) {
  name.remove_prefix(1);
  const bool isHex = !name.empty() && orvo::LowerCase(name.front()) == 'x';
  name.remove_prefix(isHex ? 1 : 0);
  uint32_t code = 0;
  const auto parsed =
      std::from_chars(name.data(), name.data() + name.size(), code, isHex ? 16 : 10);
  const bool isCharacter = code != 0 && code < 0x110000 && (code < 0xd800 || code > 0xdfff);
  return parsed.ec == std::errc() && parsed.ptr == name.data() + name.size() && isCharacter
             ? Utf8(code)
             : "";
}

std::string EntityText(std::string_view name) {
  if (!name.empty() && name.front() == '#') {
    return NumericEntity(name);
  }
  const std::string lowered = orvo::LowerCase(name);
  const auto entity = std::find_if(kEntities.begin(), kEntities.end(),
                                   [&](const Entity& row) { return row.name == lowered; });
  return entity == kEntities.end() ? "" : std::string(entity->text);
}

// Appends the entity, or the single "&", at the beginning of `html`. Returns its number of bytes.
size_t PutEntity(std::string_view html, CueText& text) {
  const size_t end = html.substr(0, kLongestEntity).find(';');
  if (end != std::string_view::npos) {
    const std::string character = EntityText(html.substr(1, end - 1));
    if (!character.empty()) {
      text.Put(character);
      return end + 1;
    }
  }
  // Authors often forget the ";" of this entity.
  if (BeginsWith(html, "&nbsp")) {
    text.Put(kNoBreakSpace);
    return 5;
  }
  text.Put("&");
  return 1;
}

// --- Tags

struct StyleTag {
  std::string_view name;
  Style style;
};
constexpr std::array kStyleTags = {
    StyleTag{"b", Style::kBold},    StyleTag{"strong", Style::kBold}, StyleTag{"i", Style::kItalic},
    StyleTag{"em", Style::kItalic}, StyleTag{"u", Style::kUnderline},
};
constexpr std::array<std::string_view, 20> kOtherTags = {
    "font", "span", "s",    "strike", "del",  "c",    "v",   "ruby", "rt",   "rp",
    "p",    "div",  "body", "a",      "html", "head", "sub", "sup",  "lang", "center"};

bool IsKnownTag(std::string_view name) {
  return name == "br" ||
         std::any_of(kStyleTags.begin(), kStyleTags.end(),
                     [=](const StyleTag& tag) { return tag.name == name; }) ||
         std::find(kOtherTags.begin(), kOtherTags.end(), name) != kOtherTags.end();
}

void ApplyTag(std::string_view name, bool closes, CueText& text) {
  if (name == "br") {
    text.Break();
  }
  for (const StyleTag& tag : kStyleTags) {
    if (name == tag.name) {
      text.Set(tag.style, !closes);
    }
  }
}

// Applies the tag at the beginning of `html`. Returns its number of bytes; 0 if there is no tag.
size_t TakeTag(std::string_view html, const HtmlRules& rules, CueText& text) {
  if (html.substr(0, 4) == "<!--") {
    const size_t end = html.find("-->");
    return end == std::string_view::npos ? html.size() : end + 3;
  }
  const size_t end = html.find_first_of("<>", 1);
  if (end == std::string_view::npos || html[end] != '>') {
    return 0;
  }
  std::string_view inside = html.substr(1, end - 1);
  const bool closes = !inside.empty() && inside.front() == '/';
  inside.remove_prefix(closes ? 1 : 0);
  const auto nameEnd = std::find_if_not(inside.begin(), inside.end(), IsLetter);
  const std::string name = orvo::LowerCase(inside.substr(0, nameEnd - inside.begin()));
  if (name.empty() || (rules.keepUnknown && !IsKnownTag(name))) {
    return name.empty() && !rules.keepUnknown ? end + 1 : 0;
  }
  ApplyTag(name, closes, text);
  return end + 1;
}

// --- Overrides

// The number at the beginning of `text`; nothing if there is none.
std::optional<double> Number(std::string_view text) {
  return TakeDecimal(text);
}

// The whole number in 0..1000 after the tag's name; nothing for any other text.
std::optional<int> NumberAfter(std::string_view tag, std::string_view name) {
  if (tag.substr(0, name.size()) != name) {
    return std::nullopt;
  }
  const auto number = Number(tag.substr(name.size()));
  return number && *number >= 0 && *number <= 1000 ? std::optional(static_cast<int>(*number))
                                                   : std::nullopt;
}

struct OverrideStyle {
  std::string_view name;
  Style style;
  bool ScriptStyle::*usual;
};
constexpr std::array kOverrideStyles = {
    OverrideStyle{"b", Style::kBold, &ScriptStyle::bold},
    OverrideStyle{"i", Style::kItalic, &ScriptStyle::italic},
    OverrideStyle{"u", Style::kUnderline, &ScriptStyle::underline},
};
// Longer content between braces is not an override but text with a brace in it.
constexpr size_t kLongestBraces = 4096;

// The lowest font weight that looks bold.
constexpr int kBoldWeight = 600;

// The point in "pos(x,y)", or the first point in "move(x,y,...)".
std::optional<Placement::Point> PointOf(std::string_view tag, int width, int height) {
  const size_t open = tag.find('(');
  const std::string_view name = tag.substr(0, open);
  if (open == std::string_view::npos || (name != "pos" && name != "move")) {
    return std::nullopt;
  }
  const size_t comma = tag.find(',', open);
  const auto x = Number(tag.substr(open + 1));
  const auto y = comma == std::string_view::npos ? std::nullopt : Number(tag.substr(comma + 1));
  if (!x || !y) {
    return std::nullopt;
  }
  return Placement::Point{std::clamp(*x / width, 0.0, 1.0), std::clamp(*y / height, 0.0, 1.0)};
}

// The end of the tag at the beginning of `block`: the next backslash outside parentheses.
size_t TagEnd(std::string_view block) {
  int depth = 0;
  for (size_t i = 1; i < block.size(); ++i) {
    depth += block[i] == '(' ? 1 : block[i] == ')' ? -1 : 0;
    if (block[i] == '\\' && depth <= 0) {
      return i;
    }
  }
  return block.size();
}

enum class Row { kBottom, kMiddle, kTop };

Row RowOf(int alignment) {
  return static_cast<Row>((alignment - 1) / 3);
}

int Percent(double share) {
  return static_cast<int>(std::lround(share * 100));
}

std::string LineOf(const Placement& placement, int alignment, int lines) {
  const Row row = RowOf(alignment);
  if (!placement.point) {
    return row == Row::kTop ? "line:0" : row == Row::kMiddle ? "line:45%" : "";
  }
  // Players position the upper edge of the first line, whatever the text's anchor is.
  const double height = lines * kLineHeight;
  const double above = row == Row::kTop ? 0 : row == Row::kMiddle ? height / 2 : height;
  const double top = std::clamp(placement.point->y - above, 0.0, std::max(0.0, 1 - height));
  return "line:" + std::to_string(Percent(top)) + "%";
}

// Finds the blocks in braces of one text. It looks for each closing brace only once, whatever the
// number of opening braces before it.
class Braces {
 public:
  explicit Braces(std::string_view text) : text_(text) {}

  // The number of bytes of the block at the beginning of `rest`, a part of the text up to its end.
  // 0 if there is none.
  size_t LengthAt(std::string_view rest) {
    const size_t at = text_.size() - rest.size();
    if (rest.front() != '{') {
      return 0;
    }
    if (close_ <= at) {
      close_ = std::min(text_.find('}', at), text_.size());
    }
    const bool isBlock = close_ < text_.size() && close_ - at < kLongestBraces;
    return isBlock ? close_ - at + 1 : 0;
  }

 private:
  std::string_view text_;
  size_t close_ = 0;  // the first closing brace at or after the last block looked for
};

// Applies the block at the beginning of the text. Returns its number of bytes; 0 if there is none.
size_t ApplyBraces(std::string_view script, Braces& braces, ScriptOverrides& overrides,
                   CueText& text) {
  const size_t length = braces.LengthAt(script);
  if (length > 0) {
    overrides.Apply(script.substr(1, length - 2), text);
  }
  return length;
}

// Appends the meaning of a script's escape. Returns its number of bytes; 0 if it is not an escape.
size_t PutEscape(std::string_view script, CueText& text) {
  if (script.size() < 2 || script.front() != '\\') {
    return 0;
  }
  switch (script[1]) {
    case 'N':
      text.Break();
      return 2;
    case 'n':
      text.Put(" ");
      return 2;
    case 'h':
      text.Put(kNoBreakSpace);
      return 2;
    case '{':
    case '}':
      text.Put(script.substr(1, 1));
      return 2;
    default:
      return 0;
  }
}

void PutLineEnd(const HtmlRules& rules, CueText& text) {
  if (rules.collapseSpace) {
    text.Put(" ");
  } else {
    text.Break();
  }
}

// Appends the first piece of `html`. Returns its number of bytes, at least one.
size_t PutPieceOfHtml(std::string_view html, const HtmlRules& rules, Braces& braces,
                      ScriptOverrides* overrides, CueText& text) {
  const char first = html.front();
  size_t length = 0;
  if (first == '<') {
    length = TakeTag(html, rules, text);
  } else if (first == '&') {
    length = PutEntity(html, text);
  } else if (first == '\n' || first == '\r') {
    PutLineEnd(rules, text);
    length = 1;
  } else if (overrides != nullptr && html.substr(0, 2) == "{\\") {
    length = ApplyBraces(html, braces, *overrides, text);
  }
  if (length == 0) {
    length = std::min(html.find_first_of("<&{\r\n", 1), html.size());
    text.Put(html.substr(0, length));
  }
  return length;
}

}  // namespace

bool BeginsWith(std::string_view text, std::string_view beginning) {
  return text.size() >= beginning.size() &&
         std::equal(beginning.begin(), beginning.end(), text.begin(), [](char left, char right) {
           return orvo::LowerCase(left) == orvo::LowerCase(right);
         });
}

std::string CueSettings(const Placement& placement, int lines) {
  constexpr std::array<const char*, 3> kColumns = {"align:left", "", "align:right"};
  const int alignment = placement.alignment == 0 ? 2 : placement.alignment;
  std::string settings = LineOf(placement, alignment, lines);
  const auto add = [&](const std::string& setting) {
    settings += (settings.empty() || setting.empty() ? "" : " ") + setting;
  };
  if (placement.point) {
    add("position:" + std::to_string(Percent(placement.point->x)) + "%");
  }
  add(kColumns[static_cast<size_t>((alignment - 1) % 3)]);
  return settings;
}

int LegacyAlignment(int number) {
  constexpr std::array<int, 12> kAlignments = {0, 1, 2, 3, 0, 7, 8, 9, 0, 4, 5, 6};
  return number >= 0 && number < static_cast<int>(kAlignments.size())
             ? kAlignments[static_cast<size_t>(number)]
             : 0;
}

ScriptOverrides::ScriptOverrides(const ScriptStyle& style, int width, int height)
    : style_(style), width_(width), height_(height) {
  placement_.alignment = style.alignment;
}

void ScriptOverrides::ApplyStyle(CueText& text) const {
  for (const OverrideStyle& row : kOverrideStyles) {
    text.Set(row.style, style_.*row.usual);
  }
}

void ScriptOverrides::Apply(std::string_view block, CueText& text) {
  // The text before the first backslash is a comment.
  block.remove_prefix(std::min(block.find('\\'), block.size()));
  while (!block.empty()) {
    const size_t end = TagEnd(block);
    std::string_view tag = block.substr(1, end - 1);
    tag.remove_prefix(std::min(tag.find_first_not_of(' '), tag.size()));
    ApplyTag(tag, text);
    block.remove_prefix(end);
  }
}

void ScriptOverrides::ApplyTag(std::string_view tag, CueText& text) {
  for (const OverrideStyle& row : kOverrideStyles) {
    if (tag == row.name) {
      text.Set(row.style, style_.*row.usual);
    } else if (const auto value = NumberAfter(tag, row.name)) {
      text.Set(row.style, *value == 1 || *value >= kBoldWeight);
    }
  }
  if (const auto alignment = NumberAfter(tag, "an");
      alignment && *alignment >= 1 && *alignment <= 9) {
    placement_.alignment = *alignment;
  } else if (const auto legacy = NumberAfter(tag, "a"); legacy && LegacyAlignment(*legacy) != 0) {
    placement_.alignment = LegacyAlignment(*legacy);
  } else if (const auto scale = NumberAfter(tag, "p")) {
    drawing_ = *scale > 0;
  } else if (const auto point = PointOf(tag, width_, height_)) {
    placement_.point = point;
  } else if (!tag.empty() && tag.front() == 'r') {
    ApplyStyle(text);
  }
}

void PutHtml(std::string_view html, const HtmlRules& rules, ScriptOverrides* overrides,
             CueText& text) {
  Braces braces(html);
  while (!html.empty()) {
    html.remove_prefix(PutPieceOfHtml(html, rules, braces, overrides, text));
  }
}

void PutScript(std::string_view script, ScriptOverrides& overrides, CueText& text) {
  overrides.Apply("\\r", text);
  Braces braces(script);
  while (!script.empty()) {
    size_t length = ApplyBraces(script, braces, overrides, text);
    if (length == 0 && !overrides.IsDrawing()) {
      length = PutEscape(script, text);
    }
    if (length == 0) {
      length = std::min(script.find_first_of("{\\", 1), script.size());
      text.Put(overrides.IsDrawing() ? "" : script.substr(0, length));
    }
    script.remove_prefix(length);
  }
}

}  // namespace webapi
