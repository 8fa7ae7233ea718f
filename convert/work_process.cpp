#include "convert/work_process.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>

#include "contract/passed_film.h"
#include "platform/confinement.h"
#include "platform/idle.h"
#include "platform/io.h"
#include "platform/process_group.h"
#include "platform/process_launch.h"

namespace convert {
namespace {

constexpr int kFilmNumber = 3;
constexpr int kLowestPriority = 19;
constexpr size_t kChunk = 1 << 16;

int Idle(void* /*context*/) {
  orvo::BecomeIdle();
  return 0;
}

orvo::LaunchOptions Options() {
  orvo::LaunchOptions options;
  options.group = orvo::ProcessGroup::kOwn;
  options.niceness = kLowestPriority;
  options.parentDeath.signal = SIGKILL;
  return options;
}

// This process's environment and the film's variable.
std::vector<std::string> EnvironmentWith(const std::string& demuxer) {
  const std::string name = std::string(orvo::kFilmVariable) + '=';
  std::vector<std::string> environment = {name + std::to_string(kFilmNumber) + ' ' + demuxer};
  for (char** variable = environ; *variable != nullptr; ++variable) {
    if (strncmp(*variable, name.c_str(), name.size()) != 0) {
      environment.emplace_back(*variable);
    }
  }
  return environment;
}

bool Copy(const std::string& path, int output) {
  const orvo::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  std::array<char, kChunk> chunk;
  ssize_t count = 0;
  while (file.IsOpen() && (count = read(file.Get(), chunk.data(), chunk.size())) > 0) {
    if (!orvo::WriteAll(output, {chunk.data(), static_cast<size_t>(count)})) {
      return false;
    }
  }
  return file.IsOpen() && count == 0;
}

int Feed(const WorkFolder& folder, int output) {
  for (const auto& [number, path] : folder.Pieces()) {
    if (!Copy(path, output)) {
      return 1;
    }
  }
  return 0;
}

}  // namespace

WorkProcess WorkProcess::Convert(const std::vector<std::string>& command,
                                 const orvo::MediaFile& film, const std::string& demuxer) {
  orvo::Program program{command.front(), command};
  program.environment = EnvironmentWith(demuxer);
  program.descriptors = {{film.Get(), kFilmNumber}};
  orvo::LaunchOptions options = Options();
  options.confinement = {Idle, nullptr};  // the transcoder confines its FFmpeg itself
  WorkProcess work;
  work.leader_ = orvo::Start(program, options);
  return work;
}

WorkProcess WorkProcess::Join(const std::vector<std::string>& command, const WorkFolder& folder,
                              const orvo::MediaFile& film) {
  WorkProcess work;
  orvo::UniqueFd pieces;
  orvo::UniqueFd feed;
  if (!orvo::OpenPipe(pieces, feed)) {
    return work;
  }
  orvo::Program program{command.front(), command};
  program.descriptors = {{pieces.Get(), STDIN_FILENO}, {film.Get(), film.Get()}};
  orvo::Confinement confinement(
      orvo::Job::kTranscoder,
      {.program = command.front(), .files = {film.Get()}, .write = {folder.Path()}});
  orvo::LaunchOptions options = Options();
  confinement.AddTo(options);
  work.leader_ = orvo::Start(program, options);
  pieces.Reset();
  if (work.leader_) {
    // Without its output, which ends FFmpeg's wait, it would not end.
    work.feeder_ = orvo::Fork([&] { return Feed(folder, feed.Get()); }, Options());
  }
  return work;
}

void WorkProcess::Pause() const {
  orvo::SignalGroup(leader_.Pid(), SIGSTOP);
}

void WorkProcess::Continue() const {
  orvo::SignalGroup(leader_.Pid(), SIGCONT);
}

}  // namespace convert
