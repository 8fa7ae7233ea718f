#include "transcoder/shell_line.h"

#include <algorithm>
#include <string_view>

namespace orvo::transcoder {
namespace {

bool IsPlain(char c) {
  constexpr std::string_view kPlain = "+-./:=@_%,";
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         kPlain.find(c) != std::string_view::npos;
}

std::string Quoted(const std::string& text) {
  if (!text.empty() && std::all_of(text.begin(), text.end(), IsPlain)) {
    return text;
  }
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? "'\\''" : std::string(1, c);
  }
  return quoted + "'";
}

}  // namespace

std::string ShellLine(const std::vector<std::string>& command) {
  std::string line;
  for (const std::string& argument : command) {
    line += line.empty() ? "" : " ";
    line += Quoted(argument);
  }
  return line;
}

}  // namespace orvo::transcoder
