#include "webapi/subtitles/cue_text.h"

#include <algorithm>

namespace webapi {
namespace {

constexpr std::array kLetters = {'b', 'i', 'u'};  // by Style

constexpr bool IsControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

// In UTF-8, only the other bytes of a character begin with the bits 10.
constexpr bool BeginsCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
}

}  // namespace

void CueText::Put(std::string_view text) {
  for (const char c : text) {
    full_ = full_ || (text_.size() >= kLongest && BeginsCharacter(c));
    if (full_) {
      return;
    }
    if (c == ' ' || c == '\t') {
      blankPending_ = true;
    } else if (!IsControl(c)) {
      PutCharacter(c);
    }
  }
}

void CueText::Break() {
  breakPending_ = true;
}

// A tag is written only before a character that it applies to, so no tag is empty. Blanks between
// words of different styles stay outside the tags.
void CueText::PutCharacter(char c) {
  CloseUnwanted();
  if (text_.empty()) {
    lines_ = 1;
  } else if (breakPending_) {
    text_ += '\n';
    ++lines_;
  } else if (blankPending_) {
    text_ += ' ';
  }
  breakPending_ = false;
  blankPending_ = false;
  OpenWanted();
  switch (c) {
    case '&':
      text_ += "&amp;";
      break;
    case '<':
      text_ += "&lt;";
      break;
    case '>':
      text_ += "&gt;";
      break;
    default:
      text_ += c;
  }
}

void CueText::CloseUnwanted() {
  const auto unwanted =
      std::find_if(open_.begin(), open_.end(), [this](Style style) { return !Has(style); });
  CloseDownTo(static_cast<size_t>(unwanted - open_.begin()));
}

void CueText::OpenWanted() {
  for (const Style style : {Style::kBold, Style::kItalic, Style::kUnderline}) {
    if (Has(style) && std::find(open_.begin(), open_.end(), style) == open_.end()) {
      text_ += std::string("<") + kLetters[static_cast<size_t>(style)] + ">";
      open_.push_back(style);
    }
  }
}

void CueText::CloseDownTo(size_t depth) {
  while (open_.size() > depth) {
    text_ += std::string("</") + kLetters[static_cast<size_t>(open_.back())] + ">";
    open_.pop_back();
  }
}

std::string CueText::Finish() {
  CloseDownTo(0);
  return std::move(text_);
}

}  // namespace webapi
