#include "transcoder/filters.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace orvo::transcoder {
namespace {

using Strings = std::vector<std::string>;

// In linear light a white of 150 nits is 1: what lies above is compressed, up to 1050 nits, and
// what lies below stays nearly as it is. The white of a page of paper, 203 nits, becomes 87 %. The
// range is fixed, because that of a film's own data would change the picture where a run starts.
constexpr char kToSdr[] =
    ":t=linear:npl=150,format=gbrpf32le,zscale=p=bt709,tonemap=mobius:desat=0:peak=7,"
    "zscale=t=bt709:m=bt709:r=limited,format=yuv420p";

// Samples of whole numbers would be mixed so low that no sum of all channels can exceed them.
constexpr char kMix[] = "aformat=sample_fmts=fltp:channel_layouts=stereo";
constexpr char kLimit[] = "alimiter=level=disabled:limit=1:latency=1";
constexpr char kNight[] = "acompressor=threshold=0.02:ratio=4:attack=5:release=250:makeup=4";

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

}  // namespace

std::string SoftwareFilters(const std::string& chain) {
  Strings filters = SplitFilters(chain);
  std::transform(filters.begin(), filters.end(), filters.begin(), SoftwareFilter);
  return JoinFilters(filters);
}

std::string VaapiFilters(const std::string& chain, const std::string& last) {
  if (chain.find("hwupload") == std::string::npos) {
    return JoinFilters(Strings{chain, last, kVaapiUpload});
  }
  Strings filters = SplitFilters(chain);
  const auto upload = std::find_if(filters.begin(), filters.end(), [](const std::string& filter) {
    return filter.rfind("format=nv12", 0) == 0 || filter.rfind("hwupload", 0) == 0;
  });
  filters.insert(upload, last);
  return JoinFilters(filters);
}

std::string ScaleFilter(const std::string& size) {
  if (size.empty()) {
    return "";
  }
  const auto cross = size.find('x');
  return cross == std::string::npos
             ? "scale=" + size
             : "scale=" + size.substr(0, cross) + ":" + size.substr(cross + 1);
}

std::string JoinFilters(const std::string& first, const std::string& second) {
  return JoinFilters(Strings{first, second});
}

std::string ToneMapping(const HighRange& range) {
  return "zscale=tin=" + std::to_string(range.transfer) +
         ":pin=" + std::to_string(range.primaries) + ":min=" + std::to_string(range.matrix) +
         ":rin=" + (range.isFull ? "full" : "limited") + kToSdr;
}

std::string StereoMix(bool atNight) {
  return JoinFilters(Strings{kMix, atNight ? kNight : "", kLimit});
}

}  // namespace orvo::transcoder
