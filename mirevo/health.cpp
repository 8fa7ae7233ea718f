#include "mirevo/health.h"

#include <dlfcn.h>
#include <grp.h>
#include <libavformat/version.h>
#include <libavutil/macros.h>
#include <sys/stat.h>
#include <sys/timex.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sstream>

#include "mirevo/output.h"
#include "mirevo/program_output.h"
#include "platform/confinement.h"
#include "platform/plat.h"
#include "policy/trans_loading.h"
#include "preprocess/stored_result.h"
#include "util/json_utils.h"
#include "util/md5.h"
#include "util/system_files.h"
#include "webapi/choice/engine_rows.h"
#include "webapi/choice/profiles.h"

namespace mirevo {
namespace {

namespace fs = std::filesystem;
using Findings = std::vector<Finding>;

constexpr char kLighttpd[] = "/usr/sbin/lighttpd";
constexpr char kFormatLibrary[] = "libavformat.so." AV_STRINGIFY(LIBAVFORMAT_VERSION_MAJOR);
constexpr char kInstallFFmpeg[] = "apt install ffmpeg";
constexpr char kInstallLighttpd[] = "apt install lighttpd";
constexpr char kReinstall[] = "Install the package mirevo again, or build the source tree.";
constexpr int kProgramMilliseconds = 10000;
constexpr uint64_t kTightSpace = 4ULL << 30;    // room for two copied films in segments
constexpr uint64_t kLeastSpace = 512ULL << 20;  // room for one encoded stream
// A clock that shows an earlier time was never set.
constexpr time_t kEarliestTime = 1767225600;  // 2026-01-01

Finding Good(const std::string& check, const std::string& detail) {
  return {check, State::kGood, detail, ""};
}

// --- Programs ---

struct Codec {
  const char* name;
  State lack;
  const char* purpose;
};
constexpr std::array kEncoders = {
    Codec{"libx264", State::kMissing, "H.264 video"},
    Codec{"aac", State::kMissing, "AAC sound"},
    Codec{"libmp3lame", State::kWarning, "MP3 sound"},
    Codec{"wmv2", State::kWarning, "Windows Media streams"},
};
constexpr std::array kDecoders = {
    Codec{"h264", State::kMissing, "most films"},
    Codec{"aac", State::kMissing, "most films"},
    Codec{"hevc", State::kWarning, "newer films"},
    Codec{"vp9", State::kWarning, "WebM films"},
    Codec{"mpeg2video", State::kWarning, "DVD films"},
    Codec{"mpeg4", State::kWarning, "AVI films"},
    Codec{"vc1", State::kWarning, "Windows Media films"},
    Codec{"ac3", State::kWarning, "Dolby Digital sound"},
    Codec{"dca", State::kWarning, "DTS sound"},
};

// Does a list that FFmpeg printed contain the name? Each line has flags, a name and a description.
bool Lists(const std::string& listing, const std::string& name) {
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string flags;
    std::string word;
    if (words >> flags >> word && word == name) {
      return true;
    }
  }
  return false;
}

template <size_t kCount>
void ExamineCodecs(const char* option, const std::string& kind,
                   const std::array<Codec, kCount>& codecs, Findings& findings) {
  const std::string listing =
      OutputOf({LibOrvoQMX::kFFmpeg, "-hide_banner", "-loglevel", "quiet", option},
               kProgramMilliseconds)
          .value_or("");
  for (const Codec& codec : codecs) {
    const std::string check = kind + " " + codec.name;
    if (Lists(listing, codec.name)) {
      findings.push_back(Good(check, codec.purpose));
    } else {
      findings.push_back({check, codec.lack, "FFmpeg cannot process " + std::string(codec.purpose),
                          "Install an FFmpeg that has it, such as Debian's."});
    }
  }
}

void ExamineFFmpeg(Findings& findings) {
  const auto version = OutputOf({LibOrvoQMX::kFFmpeg, "-version"}, kProgramMilliseconds);
  if (!version) {
    findings.push_back({"ffmpeg", State::kMissing,
                        std::string(LibOrvoQMX::kFFmpeg) + " does not run", kInstallFFmpeg});
    return;
  }
  findings.push_back(Good("ffmpeg", version->substr(0, version->find(" Copyright"))));
  ExamineCodecs("-encoders", "encoder", kEncoders, findings);
  ExamineCodecs("-decoders", "decoder", kDecoders, findings);
}

void ExamineWebServer(Findings& findings) {
  const auto version = OutputOf({kLighttpd, "-v"}, kProgramMilliseconds);
  if (!version) {
    findings.push_back(
        {"lighttpd", State::kMissing, std::string(kLighttpd) + " does not run", kInstallLighttpd});
    return;
  }
  findings.push_back(Good("lighttpd", version->substr(0, version->find(' '))));
  struct Module {
    const char* name;
    State lack;
    const char* package;
  };
  constexpr std::array kModules = {
      Module{"mod_cgi", State::kMissing, kInstallLighttpd},
      Module{"mod_openssl", State::kWarning, "For HTTPS: apt install lighttpd-mod-openssl"},
  };
  for (const Module& module : kModules) {
    const std::string path = "/usr/lib/lighttpd/" + std::string(module.name) + ".so";
    std::error_code failure;
    findings.push_back(
        fs::exists(path, failure)
            ? Good(module.name, path)
            : Finding{module.name, module.lack, path + " does not exist", module.package});
  }
}

// --- Libraries ---

bool Loads(const char* library) {
  void* const handle = dlopen(library, RTLD_LAZY | RTLD_LOCAL);
  if (handle != nullptr) {
    dlclose(handle);
  }
  return handle != nullptr;
}

// Checks the libraries that are loaded on first use: without these checks their absence would show
// only then.
void ExamineLibraries(Findings& findings) {
  findings.push_back(LibMirevo::GetMD5("").empty()
                         ? Finding{"libcrypto", State::kMissing, "libcrypto cannot be loaded.",
                                   "apt install libssl3"}
                         : Good("libcrypto", "loads"));
  findings.push_back(Loads("libsodium.so.23") ? Good("libsodium", "loads")
                                              : Finding{"libsodium", State::kWarning,
                                                        "Accounts do not work: nobody can log in.",
                                                        "apt install libsodium23"});
  findings.push_back(
      Loads("libuchardet.so.0")
          ? Good("libuchardet", "loads")
          : Finding{"libuchardet", State::kWarning,
                    "Subtitles in other character sets than UTF-8 may show wrong characters.",
                    "apt install libuchardet0"});
  findings.push_back(Loads(kFormatLibrary)
                         ? Good("libavformat", kFormatLibrary)
                         : Finding{"libavformat", State::kMissing,
                                   std::string(kFormatLibrary) + " cannot be loaded.",
                                   kInstallFFmpeg});
}

// --- This system's own files ---

void ExaminePackage(Findings& findings) {
  struct Part {
    const char* path;
    int access;
  };
  constexpr std::array kParts = {
      Part{"bin/ffmpeg", X_OK},
      Part{"webapi/entry.cgi", X_OK},
      Part{"player/index.html", R_OK},
      Part{"bin/mirevo-analyze", X_OK},
  };
  for (const Part& part : kParts) {
    const std::string path = orvo::SystemPath("/var/packages/Mirevo/target/") + part.path;
    const std::string check = std::string("file ") + part.path;
    findings.push_back(access(path.c_str(), part.access) == 0
                           ? Good(check, path)
                           : Finding{check, State::kMissing, path + " does not exist", kReinstall});
  }
  const size_t count = webapi::ProfilesOf("http").size();
  findings.push_back(count > 0 ? Good("profiles", webapi::ProfileFile())
                               : Finding{"profiles", State::kMissing,
                                         webapi::ProfileFile() + " has no profiles", kReinstall});
}

// Can this process write to the folder, or create it?
bool IsUsable(fs::path folder) {
  std::error_code failure;
  while (!fs::exists(folder, failure) && folder.has_parent_path() &&
         folder != folder.parent_path()) {
    folder = folder.parent_path();
  }
  return fs::is_directory(folder, failure) && access(folder.c_str(), W_OK | X_OK) == 0;
}

void ExamineFolders(Findings& findings) {
  for (const char* name : {"/tmp/Mirevo", "/run/mirevo", "/var/packages/Mirevo/etc"}) {
    const std::string path = orvo::SystemPath(name);
    const std::string check = std::string("folder ") + name;
    findings.push_back(IsUsable(path) ? Good(check, path)
                                      : Finding{check, State::kMissing,
                                                "This user cannot write to " + path + ".",
                                                "Run mirevo as the service's user, or set "
                                                "ORVO_SYSROOT to a folder of your own."});
  }
}

void ExamineVolumes(Findings& findings) {
  std::vector<PlatVolume> volumes;
  VolumeList(volumes);
  bool isAnyUsable = false;
  for (const PlatVolume& volume : volumes) {
    const std::string check = "volume " + volume.mountPath;
    const std::string free = Size(volume.freeBytes) + " free";
    isAnyUsable = isAnyUsable || (volume.writable && volume.freeBytes >= kLeastSpace);
    if (!volume.writable) {
      findings.push_back(
          {check, State::kWarning, "not writable", "Let the service's user write there."});
    } else if (volume.freeBytes < kTightSpace) {
      findings.push_back({check, State::kWarning, "only " + free, "Free space for segments."});
    } else {
      findings.push_back(Good(check, free));
    }
  }
  if (!isAnyUsable) {
    findings.push_back(
        {"volumes", State::kMissing, "No volume has room for a segmented stream.",
         "Free space, or name another volume in /etc/orvo/volumes, one mount path on a "
         "line."});
  }
}

void ExamineMedia(Findings& findings) {
  Json::Value roots;
  LibMirevo::ReadJsonFromFile(orvo::SystemPath("/var/packages/Mirevo/etc/media_roots"), roots);
  if (!roots.isArray()) {
    return;  // no service has run yet
  }
  for (const Json::Value& root : roots) {
    const std::string path = root.asString();
    std::error_code failure;
    const int wanted = fs::is_directory(path, failure) ? R_OK | X_OK : R_OK;
    findings.push_back(access(path.c_str(), wanted) == 0
                           ? Good("media " + path, "readable")
                           : Finding{"media " + path, State::kWarning, "This user cannot read it.",
                                     "Let the service's user read it, with chmod or a group."});
  }
}

// What the service found out about films that it could not analyze.
void ExamineAnalysis(Findings& findings) {
  std::error_code failure;
  size_t failures = 0;
  std::string example;
  const fs::path folder = orvo::SystemPath(LibOrvoQMX::preprocess::kOwnResults);
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const auto record = LibOrvoQMX::preprocess::ReadFilmRecord(entry->path().string());
    if (!record.reason.empty()) {
      ++failures;
      example = Printable(record.film) + ": " + record.reason;
    }
  }
  findings.push_back(
      failures == 0
          ? Good("key frames", "no film has failed")
          : Finding{"key frames", State::kWarning,
                    "failed: " + std::to_string(failures) + ", such as " + example,
                    "They are cut at fixed lengths. \"mirevo analyze FOLDER\" tries all of them."});
}

// --- The machine ---

// The group that may open a device; "" if there is no such group.
std::string GroupOf(const std::string& device) {
  struct stat status {};
  const group* const found = stat(device.c_str(), &status) == 0 ? getgrgid(status.st_gid) : nullptr;
  return found != nullptr ? found->gr_name : "";
}

std::string SpeedOf(const Json::Value& engine) {
  std::array<char, 32> text{};
  snprintf(text.data(), text.size(), ", %.1f times the film's speed", engine["speed"].asDouble());
  return engine["speed"].asDouble() > 0 ? text.data() : "";
}

// Does another engine encode on this device?
bool IsUsedByAnother(const std::string& device, const Json::Value& engines) {
  return std::any_of(engines.begin(), engines.end(), [&](const Json::Value& engine) {
    return engine["device"] == device && engine["lines"].asInt() > 0;
  });
}

Finding FindingOf(const Json::Value& engine, const Json::Value& engines) {
  const std::string device = engine["device"].asString();
  const std::string check = "hardware " + engine["encoder"].asString();
  if (access(device.c_str(), R_OK | W_OK) != 0) {
    return {check, State::kWarning, "This user cannot open " + device + ".",
            "Add the service's user to the group " + GroupOf(device) + "."};
  }
  if (engine["lines"].asInt() == 0) {
    const std::string detail = device + " is not used. " + engine["reason"].asString();
    if (IsUsedByAnother(device, engines)) {
      return Good(check, detail);
    }
    return {check, State::kWarning, detail,
            "Check its driver, then \"mirevo hardware on\" tries again."};
  }
  return Good(check, device + " has encoded pictures of " + engine["lines"].asString() + " lines" +
                         SpeedOf(engine));
}

void ExamineHardware(Findings& findings) {
  const Json::Value engines = webapi::DescribeEngines();
  for (const Json::Value& engine : engines) {
    findings.push_back(FindingOf(engine, engines));
  }
  if (engines.empty()) {
    findings.push_back(Good("hardware", "no video engine is known; films are encoded in software"));
  }
}

void ExamineConfinement(Findings& findings) {
  constexpr char kSettings[] = "sandbox in /var/packages/Mirevo/etc/confinement.conf";
  const std::string missing = orvo::MissingConfinement();
  const orvo::Sandbox mode = orvo::SandboxMode();
  if (mode == orvo::Sandbox::kOff) {
    findings.push_back(
        {"confinement", State::kWarning,
         "Films are read by processes that can reach everything that the service can.",
         std::string("Remove ") + kSettings + "."});
  } else if (missing.empty()) {
    findings.push_back(Good("confinement", "films are read by processes that reach nothing else"));
  } else {
    const bool isRequired = mode == orvo::Sandbox::kRequired;
    findings.push_back(
        {"confinement", isRequired ? State::kMissing : State::kWarning,
         "This kernel lacks " + missing + ".",
         isRequired ? std::string("Update the kernel, or set ") + kSettings + " to preferred."
                    : "Update the kernel."});
  }
}

void ExamineClock(Findings& findings) {
  if (time(nullptr) < kEarliestTime) {
    findings.push_back({"clock", State::kMissing, "The clock shows a time in the past.",
                        "Set it: timedatectl set-ntp true"});
    return;
  }
  timex status{};
  const bool isKept = adjtimex(&status) >= 0 && (status.status & STA_UNSYNC) == 0;
  findings.push_back(isKept ? Good("clock", "synchronized")
                            : Finding{"clock", State::kWarning, "The clock is not synchronized.",
                                      "apt install systemd-timesyncd"});
}

constexpr std::array kExaminations = {
    ExamineFFmpeg,   ExamineWebServer,   ExamineLibraries, ExaminePackage,
    ExamineFolders,  ExamineVolumes,     ExamineMedia,     ExamineAnalysis,
    ExamineHardware, ExamineConfinement, ExamineClock,
};

}  // namespace

std::vector<Finding> ExamineMachine() {
  Findings findings;
  for (const auto examine : kExaminations) {
    examine(findings);
  }
  return findings;
}

const char* NameOf(State state) {
  constexpr std::array kNames = {"ok", "warning", "missing"};
  return kNames[static_cast<size_t>(state)];
}

}  // namespace mirevo
