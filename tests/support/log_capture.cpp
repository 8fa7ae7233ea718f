// Without fortification: a fortified build calls another function than the one that is replaced
// here.
#undef _FORTIFY_SOURCE

#include "support/log_capture.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <regex>
#include <utility>

namespace test {
namespace {

std::vector<LogLine>& Lines() {
  static std::vector<LogLine> lines;
  return lines;
}

void Keep(int priority, const char* format, va_list arguments) {
  char text[8192];
  vsnprintf(text, sizeof(text), format, arguments);
  Lines().push_back({priority, text});
}

}  // namespace

std::vector<LogLine> TakeLog() {
  return std::exchange(Lines(), {});
}

std::string WithoutLineNumber(const std::string& text) {
  static const std::regex number("^([A-Za-z0-9_]+):[0-9]+ ");
  return std::regex_replace(text, number, "$1:N ");
}

std::vector<std::string> TakeLogTexts() {
  std::vector<std::string> texts;
  for (const LogLine& line : TakeLog()) {
    texts.push_back(WithoutLineNumber(line.text));
  }
  return texts;
}

}  // namespace test

extern "C" {

__attribute__((visibility("default"))) void vsyslog(int priority, const char* format,
                                                    va_list arguments) {
  test::Keep(priority, format, arguments);
}

__attribute__((visibility("default"))) void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  test::Keep(priority, format, arguments);
  va_end(arguments);
}

}  // extern "C"
