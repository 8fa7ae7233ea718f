#include "webapi/subtitles/character_set.h"

#include <iconv.h>
#include <uchardet.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <string_view>

#include "util/lazy_library.h"

namespace webapi {
namespace {

constexpr char kReplacement[] = "\xef\xbf\xbd";
constexpr char kDetector[] = "libuchardet.so.0";
constexpr size_t kLongestName = 40;
// This much text is enough to detect a language. The detection time grows with the text.
constexpr size_t kSample = 256 * 1024;
// The character set of western texts if nothing else is known.
constexpr char kUsualSet[] = "WINDOWS-1252";

struct Mark {
  std::string_view bytes;
  const char* set;
};
// The mark of UTF-32 begins with that of UTF-16, so it comes first.
constexpr std::array kMarks = {
    Mark{{"\xff\xfe\0\0", 4}, "UTF-32LE"}, Mark{{"\0\0\xfe\xff", 4}, "UTF-32BE"},
    Mark{"\xef\xbb\xbf", "UTF-8"},         Mark{"\xff\xfe", "UTF-16LE"},
    Mark{"\xfe\xff", "UTF-16BE"},
};

// Detectors name the standard sets, but files use supersets of them.
struct Superset {
  std::string_view standard;
  const char* inUse;
};
constexpr std::array kSupersets = {
    Superset{"ISO-8859-1", "WINDOWS-1252"},
    Superset{"SHIFT_JIS", "CP932"},
    Superset{"EUC-KR", "CP949"},
    Superset{"GB2312", "GB18030"},
    Superset{"BIG5", "BIG5-HKSCS"},
    Superset{"ISO-8859-9", "WINDOWS-1254"},
    Superset{"TIS-620", "CP874"},
    Superset{"ASCII", "WINDOWS-1252"},
};

class Converter {
 public:
  explicit Converter(const std::string& set) : handle_(iconv_open("UTF-8", set.c_str())) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (IsOpen()) {
      iconv_close(handle_);
    }
  }

  // NOLINTNEXTLINE(performance-no-int-to-ptr): this is how iconv_open says no.
  bool IsOpen() const { return handle_ != reinterpret_cast<iconv_t>(-1); }

  // Converts and appends the text. Replaces invalid bytes by U+FFFD. Returns the number of bytes
  // read.
  size_t Append(std::string_view text, std::string& converted) {
    std::array<char, 16384> buffer;
    size_t broken = 0;
    char* in = const_cast<char*>(text.data());
    size_t left = text.size();
    while (left > 0) {
      char* out = buffer.data();
      size_t room = buffer.size();
      const bool done = iconv(handle_, &in, &left, &out, &room) != static_cast<size_t>(-1);
      const int reason = done ? 0 : errno;
      converted.append(buffer.data(), buffer.size() - room);
      if (!done && reason != E2BIG) {
        converted += kReplacement;
        ++in;
        --left;
        ++broken;
      }
    }
    // Some sets delay a character until they know whether an accent follows.
    char* out = buffer.data();
    size_t room = buffer.size();
    iconv(handle_, nullptr, nullptr, &out, &room);
    converted.append(buffer.data(), buffer.size() - room);
    return broken;
  }

 private:
  iconv_t handle_;
};

// The number of bytes of the character at the beginning of `text`; 0 if that is not UTF-8. Checks
// the first two bytes by the table of well-formed sequences.
size_t CharacterLength(std::string_view text) {
  struct Lead {
    unsigned char first, last;  // the first byte
    unsigned char least, most;  // the second one
    size_t length;
  };
  static constexpr std::array kLeads = {
      Lead{0xc2, 0xdf, 0x80, 0xbf, 2}, Lead{0xe0, 0xe0, 0xa0, 0xbf, 3},
      Lead{0xe1, 0xec, 0x80, 0xbf, 3}, Lead{0xed, 0xed, 0x80, 0x9f, 3},
      Lead{0xee, 0xef, 0x80, 0xbf, 3}, Lead{0xf0, 0xf0, 0x90, 0xbf, 4},
      Lead{0xf1, 0xf3, 0x80, 0xbf, 4}, Lead{0xf4, 0xf4, 0x80, 0x8f, 4},
  };
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) {
    return 1;
  }
  const auto lead = std::find_if(kLeads.begin(), kLeads.end(), [&](const Lead& row) {
    return byte(0) >= row.first && byte(0) <= row.last;
  });
  if (lead == kLeads.end() || text.size() < lead->length || byte(1) < lead->least ||
      byte(1) > lead->most) {
    return 0;
  }
  const std::string_view tail = text.substr(2, lead->length - 2);
  const bool isWhole =
      std::all_of(tail.begin(), tail.end(), [](unsigned char c) { return (c & 0xc0) == 0x80; });
  return isWhole ? lead->length : 0;
}

// The converter also writes characters beyond the last one of Unicode. Replaces them.
std::string WithoutInvalid(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  while (!text.empty()) {
    const size_t length = CharacterLength(text);
    valid += length > 0 ? text.substr(0, length) : kReplacement;
    text.remove_prefix(std::max<size_t>(length, 1));
  }
  return valid;
}

// A text in another set is almost never valid UTF-8.
bool IsUtf8(const std::string& text) {
  std::string ignored;
  Converter converter("UTF-8");
  return converter.IsOpen() && converter.Append(text, ignored) == 0;
}

// Latin text in UTF-16 has a zero in every second byte. Other text has no zeros.
std::string GuessUtf16(std::string_view text) {
  std::array<size_t, 2> zeros{};
  for (size_t i = 0; i < text.size(); ++i) {
    zeros[i % 2] += text[i] == '\0' ? 1 : 0;
  }
  const size_t few = text.size() / 10;
  if (zeros[1] > few && zeros[0] < zeros[1] / 4) {
    return "UTF-16LE";
  }
  return zeros[0] > few && zeros[1] < zeros[0] / 4 ? "UTF-16BE" : "";
}

// The library's guess; "" if it has none. The library is loaded here because few requests convert
// text.
std::string Detect(std::string_view text) {
  static const orvo::LazyLibrary library(kDetector);
  decltype(&uchardet_new) create = nullptr;
  decltype(&uchardet_delete) destroy = nullptr;
  decltype(&uchardet_handle_data) handle = nullptr;
  decltype(&uchardet_data_end) end = nullptr;
  decltype(&uchardet_get_charset) get = nullptr;
  if (!library.Find("uchardet_new", create) || !library.Find("uchardet_delete", destroy) ||
      !library.Find("uchardet_handle_data", handle) || !library.Find("uchardet_data_end", end) ||
      !library.Find("uchardet_get_charset", get)) {
    return "";
  }
  const uchardet_t detector = create();
  handle(detector, text.data(), text.size());
  end(detector);
  const std::string name = get(detector);
  destroy(detector);
  return name;
}

std::string SetInUse(const std::string& name) {
  for (const Superset& row : kSupersets) {
    if (name == row.standard) {
      return row.inUse;
    }
  }
  return IsCharacterSet(name) ? name : kUsualSet;
}

std::string Guess(const std::string& text) {
  const std::string_view sample = std::string_view(text).substr(0, kSample);
  const std::string wide = GuessUtf16(sample);
  if (!wide.empty()) {
    return wide;
  }
  return IsUtf8(text) ? "UTF-8" : SetInUse(Detect(sample));
}

}  // namespace

bool IsCharacterSet(const std::string& name) {
  constexpr std::string_view kOthers = "-_.:";
  const auto isAllowed = [&](unsigned char c) {
    return c < 128 && (std::isalnum(c) != 0 || kOthers.find(static_cast<char>(c)) != kOthers.npos);
  };
  return !name.empty() && name.size() <= kLongestName &&
         std::all_of(name.begin(), name.end(), isAllowed) && Converter(name).IsOpen();
}

std::string ToUtf8(const std::string& text, const std::string& name) {
  std::string_view content = text;
  std::string set = name;
  for (const Mark& mark : kMarks) {
    if (content.substr(0, mark.bytes.size()) == mark.bytes) {
      content.remove_prefix(mark.bytes.size());
      set = mark.set;
      break;
    }
  }
  std::string converted;
  Converter converter(set.empty() ? Guess(text) : set);
  if (converter.IsOpen()) {
    converter.Append(content, converted);
  }
  return WithoutInvalid(converted);
}

}  // namespace webapi
