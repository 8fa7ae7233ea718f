// Converts the markup in subtitle texts for WebVTT.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "webapi/subtitles/cue_text.h"

namespace webapi {

// The position of a cue on the picture.
struct Placement {
  int alignment = 0;  // as on a number pad: 1 bottom left ... 9 top right; 0 for the usual place
  struct Point {
    double x;  // shares of the picture's width and height
    double y;
  };
  std::optional<Point> point;  // the position of the edge or middle that `alignment` names
};

// The cue settings for a placement of `lines` lines. "" for the usual place, bottom middle.
std::string CueSettings(const Placement& placement, int lines);

// Converts the alignment of older scripts: 1-3 (bottom), 5-7 (top), 9-11 (middle). Returns 0 for
// others.
int LegacyAlignment(int number);

// The properties of a script's style.
struct ScriptStyle {
  bool bold = false;
  bool italic = false;
  bool underline = false;
  int alignment = 0;
};

// Applies the overrides of a script ("{\i1\an8}") in their order.
class ScriptOverrides {
 public:
  // Positions are relative to a picture of `width` x `height`.
  ScriptOverrides(const ScriptStyle& style, int width, int height);

  // Applies the content of one pair of braces.
  void Apply(std::string_view block, CueText& text);
  // Is the following text the outline of a shape?
  bool IsDrawing() const { return drawing_; }
  const Placement& Where() const { return placement_; }

 private:
  void ApplyTag(std::string_view tag, CueText& text);
  void ApplyStyle(CueText& text) const;

  ScriptStyle style_;
  int width_;
  int height_;
  bool drawing_ = false;
  Placement placement_;
};

// The way a format uses HTML.
struct HtmlRules {
  bool keepUnknown;    // "<laughs>" is text; otherwise every tag is markup
  bool collapseSpace;  // line ends are blanks, and <br> is the line end
};

// Appends a text with HTML tags and entities. With `overrides`, also applies a script's overrides.
void PutHtml(std::string_view html, const HtmlRules& rules, ScriptOverrides* overrides,
             CueText& text);

// Appends the text of a script's event.
void PutScript(std::string_view script, ScriptOverrides& overrides, CueText& text);

// Does `text` begin with `beginning`, ignoring case?
bool BeginsWith(std::string_view text, std::string_view beginning);

}  // namespace webapi
