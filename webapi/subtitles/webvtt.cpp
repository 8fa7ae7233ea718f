#include "webapi/subtitles/webvtt.h"

#include <algorithm>
#include <cstdio>
#include <tuple>

#include "webapi/http/number.h"

namespace webapi {
namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

constexpr int64_t kLargestField = 999'999'999;

// A number of hours, minutes or seconds.
bool TakeField(std::string_view& text, int64_t& number) {
  std::string_view rest = text;
  const auto field = TakeNumber(rest);
  if (!field || *field > kLargestField) {
    return false;
  }
  number = *field;
  text = rest;
  return true;
}

bool TakeOneOf(std::string_view& text, std::string_view characters) {
  if (text.empty() || characters.find(text.front()) == std::string_view::npos) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

// A fraction of a second in milliseconds.
int64_t TakeFraction(std::string_view& text) {
  int64_t value = 0;
  int64_t unit = 100;
  for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1)) {
    value += (text.front() - '0') * unit;
    unit /= 10;
  }
  return value;
}

std::string FormatTime(int64_t time) {
  char text[40];
  snprintf(text, sizeof text, "%02lld:%02d:%02d.%03d", static_cast<long long>(time / 3600000),
           static_cast<int>(time / 60000 % 60), static_cast<int>(time / 1000 % 60),
           static_cast<int>(time % 1000));
  return text;
}

std::string Header() {
  return "WEBVTT\nX-TIMESTAMP-MAP=MPEGTS:" + std::to_string(kSegmentClockOffset) +
         ",LOCAL:00:00:00.000\n";
}

std::string TakeCueText(std::string_view& text) {
  std::string lines;
  while (!text.empty()) {
    const std::string_view line = TakeLine(text);
    if (line.empty()) {
      break;
    }
    lines += lines.empty() ? "" : "\n";
    lines += line;
  }
  return lines;
}

}  // namespace

std::string_view TakeLine(std::string_view& text) {
  const size_t end = std::min(text.find_first_of("\r\n"), text.size());
  const std::string_view line = text.substr(0, end);
  const bool isPair = text.substr(end, 2) == "\r\n";
  text.remove_prefix(std::min(text.size(), end + (isPair ? 2 : 1)));
  return line;
}

void SkipBlanks(std::string_view& text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
}

int64_t TakeTime(std::string_view& text) {
  std::string_view rest = text;
  int64_t hours = 0;
  int64_t minutes = 0;
  int64_t seconds = 0;
  SkipBlanks(rest);
  if (!TakeField(rest, minutes) || !TakeOneOf(rest, ":") || !TakeField(rest, seconds)) {
    return -1;
  }
  // "1:02:030" and "1:02:03" look alike. The third part is in seconds unless it has three digits.
  std::string_view third = rest;
  int64_t number = 0;
  if (TakeOneOf(third, ":") && TakeField(third, number) && rest.size() - third.size() <= 3) {
    hours = minutes;
    minutes = seconds;
    seconds = number;
    rest = third;
  }
  const int64_t fraction = TakeOneOf(rest, ".,:") ? TakeFraction(rest) : 0;
  text = rest;
  return ((hours * 60 + minutes) * 60 + seconds) * 1000 + fraction;
}

bool TakeTiming(std::string_view& text, Cue& cue) {
  std::string_view rest = text;
  const int64_t start = TakeTime(rest);
  SkipBlanks(rest);
  constexpr std::string_view kArrow = "-->";
  if (start < 0 || rest.substr(0, kArrow.size()) != kArrow) {
    return false;
  }
  rest.remove_prefix(kArrow.size());
  const int64_t end = TakeTime(rest);
  if (end < 0) {
    return false;
  }
  cue.start = start;
  cue.end = end;
  text = rest;
  return true;
}

std::vector<Cue> ParseWebVtt(std::string_view text) {
  std::vector<Cue> cues;
  while (!text.empty() && cues.size() < kMostCues) {
    std::string_view line = TakeLine(text);
    Cue cue;
    if (TakeTiming(line, cue)) {
      SkipBlanks(line);
      cue.settings = line;
      cue.text = TakeCueText(text);
      cues.push_back(std::move(cue));
    }
  }
  return cues;
}

std::string WriteWebVtt(const std::vector<Cue>& cues) {
  std::string text = Header();
  for (const Cue& cue : cues) {
    text.append("\n").append(FormatTime(cue.start)).append(" --> ").append(FormatTime(cue.end));
    text.append(cue.settings.empty() ? "" : " ").append(cue.settings).append("\n");
    text.append(cue.text).append("\n");
  }
  return text;
}

std::vector<Cue> Slice(std::vector<Cue> cues, int64_t start, int64_t end) {
  std::erase_if(cues, [=](const Cue& cue) { return cue.start >= end || cue.end <= start; });
  return cues;
}

void Tidy(std::vector<Cue>& cues) {
  std::erase_if(cues, [](const Cue& cue) { return cue.end <= cue.start || cue.text.empty(); });
  const auto byTime = [](const Cue& left, const Cue& right) {
    return std::tie(left.start, left.end) < std::tie(right.start, right.end);
  };
  std::stable_sort(cues.begin(), cues.end(), byTime);
  // The layers of a typeset text repeat the same text.
  const auto same = [](const Cue& left, const Cue& right) {
    return left.start == right.start && left.end == right.end && left.text == right.text;
  };
  cues.erase(std::unique(cues.begin(), cues.end(), same), cues.end());
}

}  // namespace webapi
