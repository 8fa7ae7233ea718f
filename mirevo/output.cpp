#include "mirevo/output.h"

#include <json/writer.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <iostream>

namespace mirevo {
namespace {

constexpr size_t kGap = 2;

// The approximate number of terminal columns of a UTF-8 text: continuation bytes take none.
size_t Width(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
  }));
}

std::vector<size_t> Widths(const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], Width(row[i]));
    }
  }
  return widths;
}

}  // namespace

void PrintJson(const Json::Value& document) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  std::cout << Json::writeString(builder, document) << "\n";
}

void PrintTable(const std::vector<std::vector<std::string>>& rows) {
  const std::vector<size_t> widths = Widths(rows);
  for (const auto& row : rows) {
    std::string line;
    size_t owed = 0;  // blanks before the next cell that is not empty
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string cell = Printable(row[i]);
      if (!cell.empty()) {
        line += std::string(owed, ' ') + cell;
        owed = 0;
      }
      owed += widths[i] - Width(cell) + kGap;
    }
    std::cout << line << "\n";
  }
}

std::string Clock(unsigned seconds) {
  std::array<char, 32> text{};
  const unsigned minutes = seconds / 60;
  if (minutes < 60) {
    snprintf(text.data(), text.size(), "%u:%02u", minutes, seconds % 60);
  } else {
    snprintf(text.data(), text.size(), "%u:%02u:%02u", minutes / 60, minutes % 60, seconds % 60);
  }
  return text.data();
}

std::string Size(uint64_t bytes) {
  constexpr std::array kUnits = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
  auto value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1024 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  std::array<char, 32> text{};
  snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
  return text.data();
}

std::string Printable(const std::string& text) {
  std::string line = text;
  std::replace_if(
      line.begin(), line.end(), [](unsigned char c) { return std::iscntrl(c) != 0; }, '?');
  return line;
}

void Complain(const std::string& text) {
  std::cerr << "mirevo: " << Printable(text) << "\n";
}

}  // namespace mirevo
