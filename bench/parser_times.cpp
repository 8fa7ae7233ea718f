// Prints the processor time that each parser needs for a large text of each of its hostile shapes.
// Run by bench/parsers.
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "linear/shapes.h"
#include "util/json_utils.h"
#include "webapi/subtitles/character_set.h"

namespace {

constexpr size_t kMegabyte = 1'000'000;
constexpr size_t kUsual = 50;

size_t Converted(const std::string& text) {
  return webapi::ToUtf8(text, "").size();
}

size_t JsonText(const std::string& text) {
  Json::Value value;
  return LibMirevo::ParseJson(text, value) ? 1 : 0;
}

double Seconds() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

struct Row {
  double seconds = 0;
  std::string piece;
  size_t output = 0;
};

Row Slowest(const linear::Parser& parser, size_t size) {
  Row slowest;
  for (const std::string& piece : parser.pieces) {
    const std::string text = linear::Repeated(parser.head, piece, size);
    const double before = Seconds();
    const size_t output = parser.parse(text);
    const double taken = Seconds() - before;
    if (taken >= slowest.seconds) {
      slowest = {taken, piece, output};
    }
  }
  return slowest;
}

// Line ends and other control characters would break the table.
std::string Shown(const std::string& piece) {
  std::string shown;
  for (const char c : piece.substr(0, 30)) {
    shown += c >= ' ' && c < 127 ? c : '.';
  }
  return shown;
}

}  // namespace

int main(int argc, char** argv) {
  const size_t size = (argc > 1 ? std::strtoul(argv[1], nullptr, 10) : kUsual) * kMegabyte;
  std::vector<linear::Parser> parsers = linear::Parsers();
  parsers.push_back(
      {"character set", Converted, "", {"x", "\xc3\xa9", "\xff", "\x81", "\xe3\x81"}});
  parsers.push_back(
      {"json", JsonText, "", {"[", "{\"a\":", "[1,", "\"", "/**/", "1", "\\u0000", "//\n"}});
  std::printf("%-16s %9s %12s  %s\n", "parser", "seconds", "bytes out", "slowest shape");
  for (const linear::Parser& parser : parsers) {
    const Row row = Slowest(parser, size);
    std::printf("%-16s %9.2f %12zu  %s\n", parser.name, row.seconds, row.output,
                Shown(row.piece).c_str());
  }
  return 0;
}
