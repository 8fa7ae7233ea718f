// The text of one WebVTT cue in the making.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace webapi {

enum class Style { kBold, kItalic, kUnderline };

class CueText {
 public:
  // Appends plain text, UTF-8. What WebVTT would read as markup is escaped; control characters are
  // left out.
  void Put(std::string_view text);
  // Ends the line. An empty line would end the cue, so there is none.
  void Break();
  // What follows is written so, or no longer so.
  void Set(Style style, bool on) { wanted_[static_cast<size_t>(style)] = on; }
  bool Has(Style style) const { return wanted_[static_cast<size_t>(style)]; }

  // How many lines have something to be seen.
  int Lines() const { return lines_; }
  // The payload, every tag closed; "" when there is nothing to be seen. Ends the object's use.
  std::string Finish();

 private:
  void PutCharacter(char c);
  void CloseUnwanted();
  void OpenWanted();
  void CloseDownTo(size_t depth);

  std::string text_;
  bool blankPending_ = false;  // seen since the last visible character
  bool breakPending_ = false;  // likewise
  int lines_ = 0;
  std::array<bool, 3> wanted_{};  // by Style
  std::vector<Style> open_;       // tags in the order in which they were opened
};

}  // namespace webapi
