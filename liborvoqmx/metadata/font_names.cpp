#include "metadata/font_names.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "metadata/matroska_elements.h"

namespace LibOrvoQMX {
namespace {

constexpr std::string_view kCollection = "ttcf";
constexpr std::string_view kNames = "name";
constexpr size_t kMostFonts = 16;    // of a collection
constexpr size_t kMostTables = 128;  // of a font
constexpr size_t kMostRecords = 1024;
constexpr size_t kTable = 16;   // bytes of a table's entry
constexpr size_t kRecord = 12;  // bytes of a name's entry

// Family, full name, PostScript name, family of all weights.
constexpr std::array kWantedNames = {1U, 4U, 6U, 16U};
constexpr unsigned kMacintosh = 1;

// A number with the highest byte first; 0 behind the end.
unsigned NumberAt(std::string_view bytes, size_t at, size_t count) {
  unsigned number = 0;
  for (size_t i = at; i < at + count; ++i) {
    number = number << 8 | (i < bytes.size() ? static_cast<uint8_t>(bytes[i]) : 0);
  }
  return number;
}

class NameSearch {
 public:
  NameSearch(const orvo::MediaFile& film, int64_t begin, int64_t end, size_t most)
      : film_(film), begin_(begin), end_(end), most_(most) {}

  std::vector<FontName> Run() {
    const std::string start = Bytes(0, 12 + 4 * kMostFonts);
    if (!start.starts_with(kCollection)) {
      LookIntoFont(0);
      return std::move(found_);
    }
    const size_t count = std::min<size_t>(NumberAt(start, 8, 4), kMostFonts);
    for (size_t n = 0; n < count; ++n) {
      LookIntoFont(NumberAt(start, 12 + 4 * n, 4));
    }
    return std::move(found_);
  }

 private:
  // At most so many bytes of the attachment.
  std::string Bytes(int64_t offset, size_t count) const {
    const int64_t left = std::max<int64_t>(end_ - begin_ - offset, 0);
    return BytesAt(film_, begin_ + offset,
                   static_cast<size_t>(std::min(left, static_cast<int64_t>(count))));
  }

  void LookIntoFont(int64_t offset) {
    const size_t count = std::min<size_t>(NumberAt(Bytes(offset, 6), 4, 2), kMostTables);
    const std::string tables = Bytes(offset + 12, count * kTable);
    for (size_t at = 0; at + kTable <= tables.size(); at += kTable) {
      if (std::string_view(tables).substr(at, 4) == kNames) {
        LookIntoNames(NumberAt(tables, at + 8, 4));
      }
    }
  }

  void LookIntoNames(int64_t offset) {
    const std::string header = Bytes(offset, 6);
    const size_t count = std::min<size_t>(NumberAt(header, 2, 2), kMostRecords);
    const int64_t texts = begin_ + offset + NumberAt(header, 4, 2);
    const std::string records = Bytes(offset + 6, count * kRecord);
    for (size_t at = 0; at + kRecord <= records.size(); at += kRecord) {
      Take(std::string_view(records).substr(at, kRecord), texts);
    }
  }

  void Take(std::string_view record, int64_t texts) {
    const bool isWanted = std::find(kWantedNames.begin(), kWantedNames.end(),
                                    NumberAt(record, 6, 2)) != kWantedNames.end();
    const auto size = static_cast<int32_t>(NumberAt(record, 8, 2));
    const FontName name{texts + NumberAt(record, 10, 2), size,
                        NumberAt(record, 0, 2) == kMacintosh ? 0 : 1};
    if (isWanted && size > 0 && size <= kLongestFontName && name.position + size <= end_ &&
        found_.size() < most_ && !IsKnown(name)) {
      found_.push_back(name);
    }
  }

  // Most languages of a font have the same name.
  bool IsKnown(const FontName& name) const {
    const std::string text = TextOf(film_, name);
    return text.empty() || std::any_of(found_.begin(), found_.end(), [&](const FontName& one) {
             return TextOf(film_, one) == text;
           });
  }

  const orvo::MediaFile& film_;
  int64_t begin_;
  int64_t end_;
  size_t most_;
  std::vector<FontName> found_;
};

// Characters beyond the first plane are not in names of fonts.
void Append(std::string& text, unsigned character) {
  const bool isHalf = character >= 0xd800 && character < 0xe000;
  if (character < 0x20 || character == 0x7f || isHalf) {
    return;
  }
  if (character < 0x80) {
    text += static_cast<char>(character);
  } else if (character < 0x800) {
    text += static_cast<char>(0xc0 | character >> 6);
    text += static_cast<char>(0x80 | (character & 0x3f));
  } else {
    text += static_cast<char>(0xe0 | character >> 12);
    text += static_cast<char>(0x80 | (character >> 6 & 0x3f));
    text += static_cast<char>(0x80 | (character & 0x3f));
  }
}

}  // namespace

std::vector<FontName> FindFontNames(const orvo::MediaFile& film, int64_t begin, int64_t end,
                                    size_t most) {
  return NameSearch(film, begin, end, most).Run();
}

std::string TextOf(const orvo::MediaFile& film, const FontName& name) {
  const std::string bytes = BytesAt(film, name.position, static_cast<size_t>(name.size));
  const size_t width = name.isWide != 0 ? 2 : 1;
  std::string text;
  for (size_t at = 0; at + width <= bytes.size(); at += width) {
    const unsigned character = NumberAt(bytes, at, width);
    // The upper half of the Macintosh's characters would need a table.
    Append(text, width == 1 && character >= 0x80 ? '?' : character);
  }
  return text;
}

}  // namespace LibOrvoQMX
