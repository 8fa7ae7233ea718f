// What the library writes to the system log. The test program provides syslog and vsyslog itself,
// so the lines of the library end here.
#pragma once

#include <string>
#include <vector>

namespace test {

struct LogLine {
  int priority;
  std::string text;
};

// The lines written since the last call.
std::vector<LogLine> TakeLog();

// `text` with every line number replaced by "N": "http_stream:N Reading streaming data timeout".
std::string WithoutLineNumber(const std::string& text);

// The texts of TakeLog(), without line numbers.
std::vector<std::string> TakeLogTexts();

}  // namespace test
