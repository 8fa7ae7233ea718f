#include "transcoder/ready_text.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace orvo::transcoder {
namespace {

constexpr char kEnd = '\0';  // of each part; no argument has it inside
constexpr char kComma = ',';
constexpr int kMostNumber = 1023;

std::vector<std::string> Split(std::string_view text, char end) {
  std::vector<std::string> parts;
  while (!text.empty()) {
    const size_t length = std::min(text.find(end), text.size());
    parts.emplace_back(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return parts;
}

std::optional<int> NumberOf(const std::string& text) {
  int number = -1;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == end;
  return isNumber && number >= 0 && number <= kMostNumber ? std::optional(number) : std::nullopt;
}

std::optional<std::vector<int>> NumbersOf(const std::string& text) {
  std::vector<int> numbers;
  for (const std::string& part : Split(text, kComma)) {
    const auto number = NumberOf(part);
    if (!number || std::find(numbers.begin(), numbers.end(), *number) != numbers.end()) {
      return std::nullopt;
    }
    numbers.push_back(*number);
  }
  return numbers;
}

}  // namespace

std::string TextOf(const ReadyRun& run) {
  std::string text;
  for (const int number : run.numbers) {
    text += std::to_string(number) + kComma;
  }
  text += kEnd;
  for (const std::string& argument : run.command) {
    text += argument + kEnd;
  }
  return text;
}

std::optional<ReadyRun> ParseReadyRun(const std::string& text) {
  if (!text.ends_with(kEnd)) {
    return std::nullopt;
  }
  std::vector<std::string> parts = Split(text, kEnd);
  auto numbers = parts.empty() ? std::nullopt : NumbersOf(parts.front());
  if (!numbers || parts.size() < 2) {
    return std::nullopt;
  }
  parts.erase(parts.begin());
  return ReadyRun{*std::move(numbers), std::move(parts)};
}

}  // namespace orvo::transcoder
