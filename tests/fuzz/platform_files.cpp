// The files that describe the machine: orvoinfo.conf, "/proc/orvo_platform" and "/proc/cpuinfo",
// with zero bytes between them.
#include <array>
#include <cstring>

#include "fuzz/fuzz.h"
#include "platform/plat.h"
#include "policy/platform_utils.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto parts = fuzz::Parts(fuzz::TextOf(data, size), '\0', 3);
  constexpr char kInfo[] = "/etc.defaults/orvoinfo.conf";
  fuzz::WriteFile(kInfo, parts[0]);
  fuzz::WriteFile("/proc/orvo_platform", parts[1]);
  fuzz::WriteFile("/proc/cpuinfo", parts[2]);
  const std::string path = orvo::SystemPath(kInfo);
  std::array<char, 64> value{};
  const int length =
      PlatFileGetKeyValue(path, "unique", value.data(), static_cast<int>(value.size()), 0);
  fuzz::Demand(length >= -1 && length < static_cast<int>(value.size()));
  if (length > 0) {
    fuzz::Demand(std::strlen(value.data()) <= static_cast<size_t>(length));
    const std::string text(value.data(), static_cast<size_t>(length));
    fuzz::Demand(PlatFileCheckKeyValue(path, "unique", text, false));
  }
  libmrv::util::PlatformUtils platform;
  const std::string name = platform.GetTransPlatformName();
  fuzz::Demand(name.size() >= 2 &&
               (name.substr(name.size() - 2) == "_1" || name.substr(name.size() - 2) == "_2"));
  fuzz::Demand(name.find('/') == std::string::npos);
  fuzz::Demand(platform.GetCPUInfo("cpu cores").size() <= size);
  return 0;
}
