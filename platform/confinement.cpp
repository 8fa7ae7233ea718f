#include "platform/confinement.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <optional>
#include <string_view>

#include "platform/landlock.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "platform/system_call_filter.h"

namespace orvo {
namespace {

constexpr char kConfiguration[] = "/var/packages/Mirevo/etc/confinement.conf";
constexpr uint64_t kMebibyte = 1 << 20;
constexpr uint64_t kLargestLimit = UINT64_C(1) << 40;
constexpr int kMilliseconds = 1000;

// In the order of Job. What works on one film beside its transcoder has 1 GiB in all, with the
// files that pictures and subtitles have in memory (util/film_memory.h).
constexpr std::array kJobs = {
    // name, memory, writable, processor, wall, file, files, processes
    JobLimits{"probe", 512, 0, 10, 10, 1, 256, 4096},
    JobLimits{"picture", 2048, 496, 20, 15, 16, 256, 4096},
    JobLimits{"subtitles", 2048, 192, 300, 310, 64, 256, 4096},
    JobLimits{"analysis", 256, 0, 3600, 14400, 1, 256, 4096},
    JobLimits{"transcoder", 65536, 8192, 604800, 0, 262144, 1024, 4096},
};

struct LimitKey {
  const char* name;
  uint64_t JobLimits::*value;
};
constexpr std::array kLimitKeys = {
    LimitKey{"memory", &JobLimits::memory},       LimitKey{"writable", &JobLimits::writable},
    LimitKey{"processor", &JobLimits::processor}, LimitKey{"wall", &JobLimits::wall},
    LimitKey{"file", &JobLimits::file},           LimitKey{"files", &JobLimits::files},
    LimitKey{"processes", &JobLimits::processes},
};

// Libraries, what they read as they start, and the fonts of subtitles.
constexpr std::array kSystemFiles = {
    "/usr/lib",
    "/usr/lib32",
    "/usr/lib64",
    "/usr/local/lib",
    "/usr/share",
    "/lib",
    "/lib64",
    "/etc/ld.so.cache",
    "/etc/ld.so.conf",
    "/etc/ld.so.conf.d",
    "/etc/ld.so.preload",
    "/etc/localtime",
    "/etc/fonts",
    "/etc/gnutls",
    "/etc/ssl/openssl.cnf",
    "/var/cache/fontconfig",
    "/proc/cpuinfo",
    "/proc/meminfo",
    "/proc/sys/vm",
    "/sys/devices/system",
};
constexpr std::array kPlainDevices = {"/dev/null", "/dev/zero", "/dev/urandom", "/dev/random"};
constexpr std::array kLoaders = {"/lib64/ld-linux-x86-64.so.2", "/lib/ld-linux-aarch64.so.1"};
constexpr std::array kPictureDevices = {"/dev/dri",        "/dev/nvidia0", "/dev/nvidiactl",
                                        "/dev/nvidia-uvm", "/dev/video11", "/dev/vchiq"};
constexpr std::array kPictureFiles = {"/sys/dev/char", "/sys/devices", "/sys/class/drm",
                                      "/sys/bus/pci", "/proc/driver/nvidia"};

std::string Configured(const std::string& key) {
  std::array<char, 4096> value{};
  const int length = PlatFileGetKeyValue(SystemPath(kConfiguration), key, value.data(),
                                         static_cast<int>(value.size()), 0);
  return length > 0 ? std::string(value.data(), static_cast<size_t>(length)) : "";
}

std::optional<uint64_t> ParseLimit(const std::string& text) {
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == end && number <= kLargestLimit;
  return isNumber ? std::optional(number) : std::nullopt;
}

void TakeConfigured(JobLimits& limits, const LimitKey& row) {
  const std::string key = std::string(limits.name) + "_" + row.name;
  const std::string text = Configured(key);
  if (text.empty()) {
    return;
  }
  if (const auto number = ParseLimit(text)) {
    limits.*row.value = *number;
  } else {
    ORVO_LOG("%s: %s is no number; its default holds.", kConfiguration, key.c_str());
  }
}

// What this process has mapped, in bytes: addresses, and those that it can write.
struct Mapped {
  uint64_t all = 0;
  uint64_t writable = 0;
};
Mapped MappedNow() {
  std::ifstream file("/proc/self/statm");
  uint64_t all = 0, resident = 0, shared = 0, text = 0, library = 0, data = 0;
  file >> all >> resident >> shared >> text >> library >> data;
  const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  return {all * page, data * page};
}

// Never more than the limit that this process has itself, which only root could raise.
void AddLimit(LaunchOptions& options, int resource, uint64_t wanted) {
  rlimit own{};
  getrlimit(static_cast<__rlimit_resource_t>(resource), &own);
  const rlim_t value = std::min(static_cast<rlim_t>(wanted), own.rlim_max);
  options.limits.push_back({resource, {value, value}});
}

void AddOptionalLimit(LaunchOptions& options, int resource, uint64_t wanted, uint64_t unit,
                      uint64_t base = 0) {
  if (wanted != 0) {
    AddLimit(options, resource, wanted * unit + base);
  }
}

template <typename Paths>
bool AllowReadingAll(LandlockRules& rules, const Paths& paths) {
  return std::all_of(paths.begin(), paths.end(),
                     [&](const auto& file) { return rules.AllowReading(file); });
}

template <typename Paths>
bool AllowDevices(LandlockRules& rules, const Paths& paths) {
  return std::all_of(paths.begin(), paths.end(),
                     [&](const auto& path) { return rules.AllowDevice(path); });
}

bool AllowProgram(LandlockRules& rules, const std::string& program) {
  return program.empty() || (rules.AllowExecution(program) &&
                             std::all_of(kLoaders.begin(), kLoaders.end(), [&](const char* path) {
                               return rules.AllowExecution(path);
                             }));
}

bool AllowHardware(LandlockRules& rules) {
  return AllowDevices(rules, kPictureDevices) && AllowReadingAll(rules, kPictureFiles);
}

// Libraries of an FFmpeg that lies elsewhere: folders, with a colon between them.
std::vector<std::string> MoreLibraries() {
  std::vector<std::string> folders;
  const std::string list = Configured("libraries");
  for (size_t start = 0; start < list.size();) {
    const size_t end = std::min(list.find(':', start), list.size());
    folders.push_back(list.substr(start, end - start));
    start = end + 1;
  }
  return folders;
}

// Nothing, with errno set, where it cannot be prepared.
std::unique_ptr<LandlockRules> RulesFor(const Reach& reach) {
  auto rules = std::make_unique<LandlockRules>();
  const bool isReady =
      rules->IsOpen() && AllowReadingAll(*rules, kSystemFiles) &&
      AllowReadingAll(*rules, MoreLibraries()) && AllowReadingAll(*rules, reach.read) &&
      AllowReadingAll(*rules, reach.files) && AllowDevices(*rules, kPlainDevices) &&
      AllowProgram(*rules, reach.program) &&
      std::all_of(reach.write.begin(), reach.write.end(),
                  [&](const std::string& path) { return rules->AllowWriting(path); }) &&
      (!reach.hardware || AllowHardware(*rules));
  return isReady ? std::move(rules) : nullptr;
}

}  // namespace

JobLimits LimitsOf(Job job) {
  JobLimits limits = kJobs[static_cast<size_t>(job)];
  if (access(SystemPath(kConfiguration).c_str(), F_OK) == 0) {
    for (const LimitKey& row : kLimitKeys) {
      TakeConfigured(limits, row);
    }
  }
  return limits;
}

std::string MissingConfinement() {
  std::string missing = LandlockVersion() == 0 ? "Landlock (Linux 5.13 or later)" : "";
  if (!HasSystemCallFilters()) {
    missing += (missing.empty() ? "" : " and ") + std::string("filters of system calls (seccomp)");
  }
  return missing;
}

Sandbox SandboxMode() {
  const std::string text = Configured("sandbox");
  if (text == "off") {
    return Sandbox::kOff;
  }
  const bool isLeftOpen = text.empty() && !MissingConfinement().empty();
  return text == "preferred" || isLeftOpen ? Sandbox::kPreferred : Sandbox::kRequired;
}

Confinement::Confinement(Job job, const Reach& reach)
    : limits_(LimitsOf(job)), isFunction_(reach.program.empty()) {
  const Sandbox mode = SandboxMode();
  if (mode == Sandbox::kOff) {
    return;
  }
  files_ = RulesFor(reach);
  const int error = errno;
  if (HasSystemCallFilters()) {
    calls_ = MediaFilter(isFunction_ ? Execution::kRefused : Execution::kAllowed,
                         reach.socketPairs ? SocketPairs::kAllowed : SocketPairs::kRefused);
  }
  isRefused_ = mode == Sandbox::kRequired && (files_ == nullptr || calls_.empty());
  if (isRefused_) {
    ORVO_LOG("A %s does not run because it cannot be confined: %s (%s says sandbox=required).",
             limits_.name, files_ == nullptr ? strerror(error) : "no seccomp", kConfiguration);
  }
}

Confinement::~Confinement() = default;

void Confinement::AddTo(LaunchOptions& options) {
  const Mapped mapped = isFunction_ ? MappedNow() : Mapped{};
  AddOptionalLimit(options, RLIMIT_AS, limits_.memory, kMebibyte, mapped.all);
  AddOptionalLimit(options, RLIMIT_DATA, limits_.writable, kMebibyte, mapped.writable);
  AddOptionalLimit(options, RLIMIT_CPU, limits_.processor, 1);
  AddOptionalLimit(options, RLIMIT_FSIZE, limits_.file, kMebibyte);
  AddOptionalLimit(options, RLIMIT_NOFILE, limits_.files, 1);
  AddOptionalLimit(options, RLIMIT_NPROC, limits_.processes, 1);
  AddLimit(options, RLIMIT_CORE, 0);
  options.confinement = {Apply, this};
}

int Confinement::Enter() {
  LaunchOptions options;
  AddTo(options);
  for (const ResourceLimit& row : options.limits) {
    if (setrlimit(static_cast<__rlimit_resource_t>(row.resource), &row.limit) != 0) {
      return errno;
    }
  }
  return Apply(this);
}

int Confinement::EnterAsParent() {
  if (!calls_.empty()) {
    calls_ = MediaFilter(Execution::kForks, SocketPairs::kRefused);
  }
  return Apply(this);
}

int Confinement::EnterAsStarter() {
  files_.reset();
  return EnterAsParent();
}

int Confinement::WallMilliseconds() const {
  return limits_.wall == 0
             ? -1
             : static_cast<int>(std::min<uint64_t>(limits_.wall, INT32_MAX / 1000)) * kMilliseconds;
}

// In the new process. A network of its own has nobody in it; where there is none to be had, the
// filter refuses sockets all the same. The filter comes last: it would refuse the steps before.
int Confinement::Apply(void* self) {
  const auto& own = *static_cast<Confinement*>(self);
  if (own.isRefused_) {
    return EOPNOTSUPP;
  }
  if (!own.calls_.empty()) {
    unshare(CLONE_NEWNET);
  }
  if (const int error = own.files_ != nullptr ? own.files_->Apply() : 0; error != 0) {
    return error;
  }
  return own.calls_.empty() ? 0 : InstallFilter(own.calls_);
}

}  // namespace orvo
