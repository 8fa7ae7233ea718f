#include "transcoder/filters.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

constexpr char kVaapiUpload[] = "format=nv12,hwupload";

// Filters that need a hardware device, and what does the same without one.
struct Filter {
  std::string_view hardware;
  std::string_view software;  // empty: nothing is needed
};

constexpr auto kHardwareFilters = std::to_array<Filter>({
    {"format=nv12", ""},
    {"hwupload", ""},
    {"scale_vaapi", "scale"},
    {"scale_qsv", "scale"},
    {"deinterlace_vaapi", "yadif"},
    {"deinterlace_qsv", "yadif"},
});

Strings SplitFilters(const std::string& chain) {
  Strings filters(1);
  bool quoted = false;
  for (size_t i = 0; i < chain.size(); ++i) {
    const char c = chain[i];
    if (c == '\\' && i + 1 < chain.size()) {
      filters.back() += c;
      filters.back() += chain[++i];
    } else if (c == ',' && !quoted) {
      filters.emplace_back();
    } else {
      quoted ^= c == '\'';
      filters.back() += c;
    }
  }
  return filters;
}

std::string JoinFilters(const Strings& filters) {
  std::string chain;
  for (const std::string& filter : filters) {
    if (!filter.empty()) {
      chain += chain.empty() ? "" : ",";
      chain += filter;
    }
  }
  return chain;
}

std::string SoftwareFilter(const std::string& filter) {
  for (const Filter& row : kHardwareFilters) {
    if (filter.rfind(row.hardware, 0) != 0) {
      continue;
    }
    const bool hasOptions = filter.size() > row.hardware.size() && !row.software.empty();
    const bool keepsOptions = hasOptions && row.software == "scale";
    return std::string(row.software) + (keepsOptions ? filter.substr(row.hardware.size()) : "");
  }
  return filter;
}

// "1280x720" as the scaler wants it; a name of a size is one word to both.
std::string ScaleFilter(const std::string& size) {
  if (size.empty()) {
    return "";
  }
  const auto cross = size.find('x');
  return cross == std::string::npos
             ? "scale=" + size
             : "scale=" + size.substr(0, cross) + ":" + size.substr(cross + 1);
}

}  // namespace

std::string SoftwareFilters(const std::string& chain) {
  Strings filters = SplitFilters(chain);
  std::transform(filters.begin(), filters.end(), filters.begin(), SoftwareFilter);
  return JoinFilters(filters);
}

std::string VaapiFilters(const std::string& chain, const std::string& size) {
  if (chain.find("hwupload") == std::string::npos) {
    return JoinFilters({chain, ScaleFilter(size), kVaapiUpload});
  }
  Strings filters = SplitFilters(chain);
  const auto upload = std::find_if(filters.begin(), filters.end(), [](const std::string& filter) {
    return filter.rfind("format=nv12", 0) == 0 || filter.rfind("hwupload", 0) == 0;
  });
  filters.insert(upload, ScaleFilter(size));
  return JoinFilters(filters);
}

}  // namespace orvo::transcoder
