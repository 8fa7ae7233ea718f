// Files of key=value lines, read as a shell reads them.
#include <strings.h>

#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

#include "platform/io.h"
#include "platform/plat.h"

namespace {

constexpr char kBlanks[] = " \t\r";
constexpr size_t kMostBytes = 1 << 20;

// The value that a shell would take from the text after "=": quoted and bare pieces joined, up to
// the first bare blank or comment.
std::string Unquote(const std::string& text) {
  std::string value;
  char quote = '\0';
  const size_t first = text.find_first_not_of(kBlanks);
  if (first != 0 && first != std::string::npos && text[first] == '#') {
    return value;
  }
  for (size_t i = first; i < text.size(); ++i) {
    const char c = text[i];
    if (quote == '\'') {
      if (c == quote) {
        quote = '\0';
      } else {
        value += c;
      }
    } else if (c == '\\' && i + 1 < text.size() &&
               (quote == '\0' || std::strchr("\\\"$`", text[i + 1]) != nullptr)) {
      value += text[++i];
    } else if (c == quote && quote != '\0') {
      quote = '\0';
    } else if (quote == '\0' && (c == '"' || c == '\'')) {
      quote = c;
    } else if (quote == '\0' && (std::strchr(kBlanks, c) != nullptr)) {
      break;
    } else {
      value += c;
    }
  }
  return value;
}

std::string Trim(const std::string& text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) {
    return "";
  }
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string KeyOf(const std::string& left) {
  constexpr char kExport[] = "export";
  std::string key = Trim(left);
  if (key.rfind(kExport, 0) == 0 && key.find_first_of(kBlanks) == sizeof(kExport) - 1) {
    key = Trim(key.substr(sizeof(kExport) - 1));
  }
  return key;
}

// The value of the last assignment of `key`; nothing when there is none. `readable` tells an absent
// key from an absent file.
std::optional<std::string> FindValue(const std::string& path, const std::string& key,
                                     bool& readable) {
  std::ifstream source(path);
  std::string text;
  readable = source.is_open() && orvo::ReadAll(source, text, kMostBytes);
  std::optional<std::string> value;
  std::istringstream file(readable ? text : "");
  std::string line;
  while (std::getline(file, line)) {
    const auto equals = line.find('=');
    if (equals != std::string::npos && KeyOf(line.substr(0, equals)) == key) {
      value = Unquote(line.substr(equals + 1));
    }
  }
  return value;
}

}  // namespace

int PlatFileGetKeyValue(const std::string& file, const std::string& key, char* buffer, int size,
                        int /*flags*/) {
  bool readable = false;
  const std::optional<std::string> value = FindValue(file, key, readable);
  if (!readable || buffer == nullptr || size < 1) {
    return -1;
  }
  if (!value) {
    return 0;
  }
  if (value->size() >= static_cast<size_t>(size)) {
    return -1;
  }
  std::memcpy(buffer, value->c_str(), value->size() + 1);
  return static_cast<int>(value->size());
}

bool PlatFileCheckKeyValue(const std::string& file, const std::string& key,
                           const std::string& value, bool ignoreCase) {
  bool readable = false;
  const std::optional<std::string> found = FindValue(file, key, readable);
  if (!found) {
    return false;
  }
  return ignoreCase ? strcasecmp(found->c_str(), value.c_str()) == 0 : *found == value;
}
