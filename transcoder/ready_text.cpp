#include "transcoder/ready_text.h"

#include <algorithm>
#include <string_view>

#include "util/number.h"

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

std::optional<std::vector<int>> NumbersOf(const std::string& text) {
  std::vector<int> numbers;
  for (const std::string& part : Split(text, kComma)) {
    const auto number = LibOrvoQMX::ParseNumber(part);
    if (!number || *number > kMostNumber ||
        std::find(numbers.begin(), numbers.end(), *number) != numbers.end()) {
      return std::nullopt;
    }
    numbers.push_back(static_cast<int>(*number));
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
