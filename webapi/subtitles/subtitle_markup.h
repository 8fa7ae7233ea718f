// Markup in the texts of subtitle formats, rewritten for WebVTT.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "webapi/subtitles/cue_text.h"

namespace webapi {

// Where a cue stands on the picture.
struct Placement {
  int alignment = 0;  // as on a number pad: 1 bottom left ... 9 top right; 0 for the usual place
  struct Point {
    double x;  // shares of the picture's width and height
    double y;
  };
  std::optional<Point> point;  // where the edge or middle named by `alignment` stands
};

// The cue settings of a placement of so many lines. "" for the usual place, bottom middle.
std::string CueSettings(const Placement& placement, int lines);

// The alignment that older scripts number 1-3 (bottom), 5-7 (top), 9-11 (middle); 0 for others.
int LegacyAlignment(int number);

// What a script's style gives its texts.
struct ScriptStyle {
  bool bold = false;
  bool italic = false;
  bool underline = false;
  int alignment = 0;
};

// Reads the overrides of a script ("{\i1\an8}") as they come.
class ScriptOverrides {
 public:
  // Positions are relative to a picture of `width` x `height`.
  ScriptOverrides(const ScriptStyle& style, int width, int height);

  // Applies the content of one pair of braces.
  void Apply(std::string_view block, CueText& text);
  // Shapes are drawn now: what follows is their outline, not text.
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

// How a format uses HTML.
struct HtmlRules {
  bool keepUnknown;    // "<laughs>" is text; otherwise every tag is markup
  bool collapseSpace;  // line ends are blanks, and <br> is the line end
};

// Appends a text with HTML's tags and entities in it. Where `overrides` are given, those of a
// script are understood as well.
void PutHtml(std::string_view html, const HtmlRules& rules, ScriptOverrides* overrides,
             CueText& text);

// Appends the text of a script's event.
void PutScript(std::string_view script, ScriptOverrides& overrides, CueText& text);

// Does `text` begin with `beginning`, in letters of either case?
bool BeginsWith(std::string_view text, std::string_view beginning);

}  // namespace webapi
