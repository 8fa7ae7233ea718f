#include "transcoder/command_reach.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace orvo::transcoder {
namespace {

constexpr std::string_view kFileScheme = "file:";
constexpr std::array<std::string_view, 3> kDeviceOptions = {"-hwaccel", "-vaapi_device",
                                                            "-init_hw_device"};
constexpr std::array<std::string_view, 5> kDeviceEncoders = {"_vaapi", "_qsv", "_nvenc", "_v4l2m2m",
                                                             "_omx"};

bool IsDescriptor(std::string_view address) {
  return address.starts_with("pipe:") || address.starts_with("fd:") || address == "-";
}

std::string PathOf(std::string_view address) {
  return std::string(address.starts_with(kFileScheme) ? address.substr(kFileScheme.size())
                                                      : address);
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

bool UsesDevice(std::string_view argument) {
  return std::find(kDeviceOptions.begin(), kDeviceOptions.end(), argument) !=
             kDeviceOptions.end() ||
         std::any_of(kDeviceEncoders.begin(), kDeviceEncoders.end(),
                     [&](std::string_view end) { return argument.ends_with(end); });
}

}  // namespace

Reach ReachOf(const std::vector<std::string>& command) {
  Reach reach{.program = command.front()};
  for (size_t i = 1; i + 1 < command.size(); ++i) {
    if (command[i] == "-i" && !IsDescriptor(command[i + 1])) {
      reach.read.push_back(PathOf(command[i + 1]));
    }
    reach.hardware = reach.hardware || UsesDevice(command[i]);
  }
  if (command.size() > 1 && !IsDescriptor(command.back())) {
    reach.write.push_back(FolderOf(PathOf(command.back())));
  }
  return reach;
}

}  // namespace orvo::transcoder
