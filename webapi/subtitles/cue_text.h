// Builds the text of one WebVTT cue.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace webapi {

enum class Style { kBold, kItalic, kUnderline };

class CueText {
 public:
  // No picture has room for more. With its tags, a text is slightly longer.
  static constexpr size_t kLongest = 16384;

  // Appends plain text in UTF-8. Escapes characters that are markup in WebVTT, and leaves out
  // control characters. A text ends after kLongest bytes, at a whole character.
  void Put(std::string_view text);
  // Ends the line. Never writes an empty line, because it would end the cue.
  void Break();
  // Switches a style on or off for the following text.
  void Set(Style style, bool on) { wanted_[static_cast<size_t>(style)] = on; }
  bool Has(Style style) const { return wanted_[static_cast<size_t>(style)]; }

  // The number of lines with visible text.
  int Lines() const { return lines_; }
  // The payload, with every tag closed; "" if nothing is visible. Call it last.
  std::string Finish();

 private:
  void PutCharacter(char c);
  void CloseUnwanted();
  void OpenWanted();
  void CloseDownTo(size_t depth);

  std::string text_;
  bool blankPending_ = false;  // seen since the last visible character
  bool breakPending_ = false;  // likewise
  bool full_ = false;
  int lines_ = 0;
  std::array<bool, 3> wanted_{};  // by Style
  std::vector<Style> open_;       // tags in the order in which they were opened
};

}  // namespace webapi
