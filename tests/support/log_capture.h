// Captures the library's lines to the system log: the test program provides its own syslog and
// vsyslog.
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
