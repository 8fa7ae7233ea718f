// The cache file is text: a line "orvo-encoders SIZE MTIME CHECKSUM" (the executable's size, its
// modification time in nanoseconds, and the checksum of what follows), then one name a line.
#include "transcoder/ffmpeg_listing.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <sstream>
#include <utility>

#include "platform/confinement.h"
#include "platform/io.h"
#include "platform/process_launch.h"
#include "platform/unique_fd.h"
#include "transcoder/file_identity.h"

namespace orvo::transcoder {
namespace {

using Names = std::set<std::string, std::less<>>;

constexpr size_t kLongestCache = 65536;
constexpr mode_t kCacheMode = 0600;  // only its own user reads it

// --- The executable ---

std::string ReadToEnd(int fd) {
  std::string content;
  std::array<char, 4096> buffer;
  while (true) {
    const ssize_t count = read(fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      break;
    }
    content.append(buffer.data(), static_cast<size_t>(count));
  }
  return content;
}

// What the executable prints; nothing when it cannot be run or fails.
std::optional<std::string> Listing(const std::string& executable, const std::string& option) {
  UniqueFd readEnd;
  UniqueFd writeEnd;
  if (!OpenPipe(readEnd, writeEnd)) {
    return std::nullopt;
  }
  Program program{executable,
                  {executable, "-nostdin", "-hide_banner", "-loglevel", "quiet", option}};
  program.descriptors = {{writeEnd.Get(), STDOUT_FILENO}};
  Confinement confinement(Job::kPicture, {.program = executable});
  LaunchOptions options;
  confinement.AddTo(options);
  Process process = Start(program, options);
  writeEnd.Reset();
  std::string text = ReadToEnd(readEnd.Get());
  return process.Wait() == 0 ? std::optional(std::move(text)) : std::nullopt;
}

// Each line is letters of capabilities, a name and what it is. The legend before them has "=" in
// the name's place.
Names ParseListing(const std::string& listing) {
  Names names;
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string capabilities, name;
    words >> capabilities >> name;
    if (!name.empty() && name != "=") {
      names.insert(name);
    }
  }
  return names;
}

// --- The cache ---

// FNV-1a: enough to notice damage.
uint64_t Checksum(std::string_view text) {
  uint64_t sum = UINT64_C(14695981039346656037);
  for (const unsigned char c : text) {
    sum = (sum ^ c) * UINT64_C(1099511628211);
  }
  return sum;
}

std::string Header(const std::string& identity, std::string_view body) {
  return "orvo-encoders " + identity + " " + std::to_string(Checksum(body));
}

std::optional<Names> ReadCache(const std::string& path, const std::string& identity) {
  // The folder is open to others.
  const std::string content = ReadOwnFile(path, kLongestCache).value_or("");
  const auto end = content.find('\n');
  if (end == std::string::npos) {
    return std::nullopt;
  }
  const std::string body = content.substr(end + 1);
  if (content.substr(0, end) != Header(identity, body)) {
    return std::nullopt;
  }
  Names names;
  std::istringstream lines(body);
  for (std::string name; std::getline(lines, name);) {
    names.insert(name);
  }
  return names;
}

// Failure costs the next start a question, and nothing else.
void WriteCache(const std::string& path, const std::string& identity, const Names& names) {
  std::string body;
  for (const std::string& name : names) {
    body += name + "\n";
  }
  ReplaceFile(path, Header(identity, body) + "\n" + body, kCacheMode);
}

}  // namespace

FfmpegListing::FfmpegListing(std::string executable, std::string option, std::string cacheFile)
    : executable_(std::move(executable)),
      option_(std::move(option)),
      cacheFile_(std::move(cacheFile)) {}

bool FfmpegListing::Has(std::string_view name) {
  Load();
  return names_.find(name) != names_.end();
}

void FfmpegListing::Load() {
  if (std::exchange(loaded_, true)) {
    return;
  }
  const std::string identity = FileIdentity(executable_);
  if (std::optional<Names> cached = ReadCache(cacheFile_, identity)) {
    names_ = std::move(*cached);
  } else if (const std::optional<std::string> listing = Listing(executable_, option_)) {
    names_ = ParseListing(*listing);
    WriteCache(cacheFile_, identity, names_);
  }
}

}  // namespace orvo::transcoder
