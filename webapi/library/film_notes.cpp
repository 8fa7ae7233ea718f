#include "webapi/library/film_notes.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>

#include "webapi/http/number.h"
#include "webapi/http/request.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

constexpr size_t kLargestFile = 262144;
constexpr size_t kLongestText = 4000;
constexpr int kLargestNumber = 9999;

struct Note {
  std::string_view element;
  const char* member;
  bool isNumber;
};
constexpr std::array kNotes = {
    Note{"title", "title", false},  Note{"showtitle", "show", false},
    Note{"plot", "plot", false},    Note{"year", "year", true},
    Note{"season", "season", true}, Note{"episode", "episode", true},
};

// The content of the first element with this name that has no attributes.
std::optional<std::string_view> ContentOf(std::string_view text, std::string_view element) {
  const std::string open = std::string("<").append(element).append(">");
  const std::string close = std::string("</").append(element).append(">");
  const size_t begin = text.find(open);
  const size_t end = begin == std::string_view::npos ? begin : text.find(close, begin);
  if (end == std::string_view::npos) {
    return std::nullopt;
  }
  return text.substr(begin + open.size(), end - begin - open.size());
}

struct Entity {
  std::string_view name;
  char character;
};
constexpr std::array kEntities = {Entity{"&amp;", '&'},   Entity{"&lt;", '<'},
                                  Entity{"&gt;", '>'},    Entity{"&quot;", '"'},
                                  Entity{"&apos;", '\''}, Entity{"&#39;", '\''}};

// Takes one character or entity off the front of `text`.
char TakeCharacter(std::string_view& text) {
  const auto* const entity =
      std::find_if(kEntities.begin(), kEntities.end(),
                   [&](const Entity& row) { return text.substr(0, row.name.size()) == row.name; });
  const char character = entity == kEntities.end() ? text.front() : entity->character;
  text.remove_prefix(entity == kEntities.end() ? 1 : entity->name.size());
  return character;
}

// Takes a piece of markup off the front of `text`, if there is one. The text of a CDATA section
// stays.
bool TakeMarkup(std::string_view& text) {
  constexpr std::string_view kData = "<![CDATA[";
  constexpr std::string_view kDataEnd = "]]>";
  for (const std::string_view mark : {kData, kDataEnd}) {
    if (text.substr(0, mark.size()) == mark) {
      text.remove_prefix(mark.size());
      return true;
    }
  }
  if (text.front() != '<') {
    return false;
  }
  const size_t end = text.find('>');
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return true;
}

// Plain text on one line. A cut leaves whole characters.
std::string PlainText(std::string_view content) {
  std::string text;
  while (!content.empty() && text.size() < kLongestText) {
    if (TakeMarkup(content)) {
      continue;
    }
    const char c = TakeCharacter(content);
    const bool isSpace = static_cast<unsigned char>(c) <= ' ' || c == '\x7f';
    if (!isSpace || (!text.empty() && text.back() != ' ')) {
      text += isSpace ? ' ' : c;
    }
  }
  while (!text.empty() && (text.back() == ' ' || !IsUtf8(text))) {
    text.pop_back();
  }
  return text;
}

std::string ReadStart(const orvo::MediaFile& file) {
  std::string text(std::min<size_t>(file.Status().st_size, kLargestFile), '\0');
  const ssize_t size = text.empty() ? 0 : pread(file.Get(), text.data(), text.size(), 0);
  text.resize(size > 0 ? static_cast<size_t>(size) : 0);
  return text;
}

}  // namespace

Json::Value ParseNotes(std::string_view text) {
  Json::Value notes(Json::objectValue);
  if (!IsUtf8(std::string(text))) {
    return notes;
  }
  for (const Note& note : kNotes) {
    const auto content = ContentOf(text, note.element);
    const std::string plain = content ? PlainText(*content) : "";
    const auto number = ParseNumber(plain);
    if (!note.isNumber && !plain.empty()) {
      notes[note.member] = plain;
    } else if (note.isNumber && number && *number <= kLargestNumber) {
      notes[note.member] = static_cast<Json::Int64>(*number);
    }
  }
  return notes;
}

Json::Value NotesBeside(const orvo::MediaFile& film) {
  const auto path = std::filesystem::path(film.Path()).replace_extension(".nfo");
  const orvo::MediaFile file = OpenVisible(path.string());
  return file.IsOpen() ? ParseNotes(ReadStart(file)) : Json::Value(Json::objectValue);
}

}  // namespace webapi
