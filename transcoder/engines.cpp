// The file is text. The first line is "orvo-engines" and what the proofs depend on; each other line
// is one engine: encoder, node, lines, speed and reason, with tabs between them.
#include "transcoder/engines.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/io.h"
#include "platform/plat.h"
#include "transcoder/file_identity.h"
#include "transcoder/places.h"

namespace orvo::transcoder {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

constexpr char kRecordName[] = "/transcoder_engines";
constexpr char kBootFile[] = "/proc/sys/kernel/random/boot_id";
constexpr char kNvidiaVersion[] = "/proc/driver/nvidia/version";
constexpr size_t kLongestRecord = 65536;
constexpr mode_t kRecordMode = 0600;
constexpr size_t kFields = 5;

// What an encoder opens: the devices whose names begin so. An encoder may have several rows.
struct Devices {
  std::string_view encoder;
  const char* folder;
  const char* prefix;
};
constexpr auto kDevices = std::to_array<Devices>({
    {"h264_vaapi", "/dev/dri", "renderD"},
    {"h264_qsv", "/dev/dri", "renderD"},
    {"h264_nvenc", "/dev", "nvidia0"},
    {"h264_v4l2m2m", "/dev", "video"},
    {"h264_omx", "/dev", "vchiq"},
    {"h264_smd", "/dev", "ismd"},
    {kWrapper, "/dev/dri", "renderD"},
    {kWrapper, "/dev", "video"},
    {kWrapper, "/dev", "nvidia0"},
});

// They take the same command line as VA-API, whose profiles count as hardware.
constexpr std::array kStandIns = {"h264_nvenc", "h264_qsv", "h264_v4l2m2m"};

constexpr std::array kDriverFolders = {"/usr/lib/x86_64-linux-gnu/dri",
                                       "/usr/lib/aarch64-linux-gnu/dri",
                                       "/usr/lib/arm-linux-gnueabihf/dri", "/usr/lib/dri"};
constexpr std::array kPluginFolders = {"/usr/lib/x86_64-linux-gnu/gstreamer-1.0",
                                       "/usr/lib/aarch64-linux-gnu/gstreamer-1.0",
                                       "/usr/lib/arm-linux-gnueabihf/gstreamer-1.0"};
constexpr char kDriverEnd[] = "_drv_video.so";

// The names in a folder that `isWanted`, in order.
template <typename Wanted>
Strings NamesIn(const std::string& folder, Wanted isWanted) {
  Strings names;
  std::error_code failure;
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    if (isWanted(name)) {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string FirstLine(const std::string& path) {
  std::ifstream file(SystemPath(path));
  std::string line;
  std::getline(file, line);
  return line;
}

Strings DriverFolders() {
  const char* const given = getenv("LIBVA_DRIVERS_PATH");
  return given != nullptr ? Strings{given} : Strings(kDriverFolders.begin(), kDriverFolders.end());
}

std::string Drivers() {
  std::string text;
  for (const std::string& folder : DriverFolders()) {
    const Strings names =
        NamesIn(folder, [](const std::string& name) { return name.ends_with(kDriverEnd); });
    for (const std::string& name : names) {
      text += folder + "/" + name + " " + FileIdentity(folder + "/" + name) + " ";
    }
  }
  return text;
}

// The wrapper and the folders of GStreamer's plugins.
std::string Wrapper() {
  std::string text = FileIdentity(SystemPath(kWrapperProgram)) + " ";
  for (const char* folder : kPluginFolders) {
    text += FileIdentity(folder) + " ";
  }
  return text;
}

std::string Nodes() {
  std::string text;
  for (const Devices& row : kDevices) {
    for (const std::string& node : NodesOf(row.encoder)) {
      text += node + " ";
    }
  }
  return text;
}

// Everything that a proof depends on, in one line.
std::string MachineState() {
  std::string state = "orvo-engines " + FirstLine(kBootFile) + " " + FileIdentity(kExecutable) +
                      " " + Drivers() + Wrapper() + Nodes() + FirstLine(kNvidiaVersion);
  std::replace(state.begin(), state.end(), '\n', ' ');
  return state;
}

// Does the command line name more of VA-API than its encoder? The film's name and the output's do
// not count.
bool NeedsVaapi(const Strings& arguments) {
  for (size_t i = 0; i + 1 < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const bool isFilm = i > 0 && arguments[i - 1] == "-i";
    const bool isDevice = argument.find("vaapi") != std::string::npos ||
                          argument.find("hwupload") != std::string::npos ||
                          argument.starts_with("-hwaccel");
    if (!isFilm && isDevice && argument != kVaapiEncoder) {
      return true;
    }
  }
  return false;
}

template <typename Number>
bool Parse(const std::string& text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  return parsed.ec == std::errc() && parsed.ptr == end && number >= 0;
}

std::optional<Engine> ParseEngine(const std::string& line) {
  Strings fields;
  std::istringstream text(line + "\t");
  for (std::string field; std::getline(text, field, '\t');) {
    fields.push_back(field);
  }
  Engine engine;
  if (fields.size() != kFields || !IsEngine(fields[0]) || !Parse(fields[2], engine.lines) ||
      !Parse(fields[3], engine.speed)) {
    return std::nullopt;
  }
  engine.encoder = fields[0];
  engine.node = fields[1];
  engine.reason = fields[4];
  return engine;
}

std::string LineOf(const Engine& engine) {
  std::array<char, 32> speed{};
  snprintf(speed.data(), speed.size(), "%.2f", engine.speed);
  return engine.encoder + "\t" + engine.node + "\t" + std::to_string(engine.lines) + "\t" +
         speed.data() + "\t" + engine.reason + "\n";
}

}  // namespace

bool IsEngine(std::string_view encoder) {
  return std::any_of(kDevices.begin(), kDevices.end(),
                     [&](const Devices& row) { return row.encoder == encoder; });
}

Strings NodesOf(std::string_view encoder) {
  Strings nodes;
  for (const Devices& row : kDevices) {
    if (row.encoder != encoder) {
      continue;
    }
    const std::string folder = SystemPath(row.folder);
    const auto isDevice = [&](const std::string& name) { return name.starts_with(row.prefix); };
    for (const std::string& name : NamesIn(folder, isDevice)) {
      nodes.push_back(folder + "/" + name);
    }
  }
  return nodes;
}

EngineRecord EngineRecord::Load() {
  EngineRecord record;
  std::istringstream lines(ReadOwnFile(CachePath(kRecordName), kLongestRecord).value_or(""));
  std::string line;
  if (!std::getline(lines, line) || line != MachineState()) {
    return record;
  }
  while (std::getline(lines, line)) {
    const auto engine = ParseEngine(line);
    if (!engine) {
      return {};
    }
    record.engines_.push_back(*engine);
  }
  record.isKnown_ = true;
  return record;
}

std::optional<Engine> EngineRecord::Proved(std::string_view encoder, int lines) const {
  const auto found = std::find_if(engines_.begin(), engines_.end(), [&](const Engine& engine) {
    return engine.encoder == encoder && engine.lines > 0 && engine.lines >= lines;
  });
  return found == engines_.end() ? std::nullopt : std::optional(*found);
}

std::optional<Engine> EngineRecord::Serving(std::string_view encoder) const {
  auto engine = Proved(encoder);
  for (const char* const other : kStandIns) {
    engine = !engine && encoder == kVaapiEncoder ? Proved(other) : engine;
  }
  return engine;
}

void EngineRecord::Set(const Engine& engine) {
  std::erase_if(engines_, [&](const Engine& known) { return known.encoder == engine.encoder; });
  engines_.push_back(engine);
  isKnown_ = true;
}

bool EngineRecord::Save() const {
  std::string text = MachineState() + "\n";
  for (const Engine& engine : engines_) {
    text += LineOf(engine);
  }
  return ReplaceFile(CacheFile(kRecordName), text, kRecordMode);
}

Strings WithServingEngine(Strings arguments, const EngineRecord& record) {
  const auto engine = record.Serving(kVaapiEncoder);
  if (!engine || NeedsVaapi(arguments)) {
    return arguments;
  }
  std::replace(arguments.begin(), arguments.end(), std::string(kVaapiEncoder), engine->encoder);
  return arguments;
}

}  // namespace orvo::transcoder
