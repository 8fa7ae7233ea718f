#include "mirevo/analysis.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <utility>

#include "platform/io.h"
#include "platform/process_launch.h"

namespace mirevo {
namespace {

constexpr int kNiceness = 10;  // transcoders for viewers have priority
constexpr char kNoReason[] = "the analysis ended without a result";

orvo::Process StartWorker(const std::string& worker, const std::string& film, int output) {
  orvo::Program program{worker, {worker, "--report", film}};
  program.descriptors = {{output, STDOUT_FILENO}};
  orvo::LaunchOptions options;
  options.streams = orvo::StandardStreams::kKept;
  options.niceness = kNiceness;
  options.parentDeath.signal = SIGKILL;
  return orvo::Start(program, options);
}

}  // namespace

Analysis::Analysis(std::string worker, unsigned jobs)
    : worker_(std::move(worker)), jobs_(std::max(jobs, 1U)), signals_({SIGINT, SIGTERM, SIGHUP}) {}

Analysis::~Analysis() {
  StopAll();
}

bool Analysis::Run(const std::vector<std::string>& films, const OnResult& onResult,
                   const OnState& onState) {
  AnalysisState state;
  state.all = films.size();
  size_t next = 0;
  while (next < films.size() || !workers_.empty()) {
    while (workers_.size() < jobs_ && next < films.size()) {
      state.done += Start(films[next++], onResult) ? 0 : 1;
    }
    std::vector<size_t> ended;
    if (!WaitAndRead(ended)) {
      StopAll();
      return false;
    }
    state.done += ended.size();
    for (auto index = ended.rbegin(); index != ended.rend(); ++index) {
      Finish(*index, onResult);
    }
    state.running.clear();
    for (const Worker& worker : workers_) {
      state.running.push_back(worker.part);
    }
    onState(state);
  }
  return true;
}

// Starts a worker. If that fails, reports the failure as the film's result and returns false.
bool Analysis::Start(const std::string& film, const OnResult& onResult) {
  orvo::UniqueFd readEnd;
  orvo::UniqueFd writeEnd;
  orvo::Process process;
  if (orvo::OpenPipe(readEnd, writeEnd)) {
    process = StartWorker(worker_, film, writeEnd.Get());
  }
  if (!process) {
    onResult({film, false, 0, "the analysis could not be started"});
    return false;
  }
  workers_.push_back({std::move(process), std::move(readEnd), {film, false, 0, ""}, 0, ""});
  return true;
}

// Waits until a worker writes something or ends. `ended` gets the indices of the ended workers in
// ascending order. False when a signal to stop has come.
bool Analysis::WaitAndRead(std::vector<size_t>& ended) {
  std::vector<pollfd> events = {{signals_.Descriptor(), POLLIN, 0}};
  for (const Worker& worker : workers_) {
    events.push_back({worker.output.Get(), POLLIN, 0});
  }
  if (poll(events.data(), events.size(), -1) < 0) {
    return errno == EINTR;
  }
  for (size_t i = 0; i < workers_.size(); ++i) {
    if (events[i + 1].revents != 0 && !Read(workers_[i])) {
      ended.push_back(i);
    }
  }
  return events[0].revents == 0;
}

// Reads what the worker has written. False at the end of its output.
bool Analysis::Read(Worker& worker) {
  std::array<char, 4096> buffer{};
  const ssize_t count = read(worker.output.Get(), buffer.data(), buffer.size());
  if (count <= 0) {
    return count < 0 && errno == EINTR;
  }
  for (const char c : std::string(buffer.data(), static_cast<size_t>(count))) {
    if (c == '\n') {
      Take(worker, worker.line);
      worker.line.clear();
    } else {
      worker.line += c;
    }
  }
  return true;
}

void Analysis::Take(Worker& worker, const std::string& line) {
  const size_t blank = std::min(line.find(' '), line.size());
  const std::string word = line.substr(0, blank);
  const std::string value = blank < line.size() ? line.substr(blank + 1) : "";
  if (word == "progress") {
    worker.part = std::clamp(std::strtod(value.c_str(), nullptr), 0.0, 1.0);
  } else if (word == "keyframes") {
    worker.result.keyframes = std::strtoull(value.c_str(), nullptr, 10);
  } else if (word == "error") {
    worker.result.reason = value;
  }
}

void Analysis::Finish(size_t index, const OnResult& onResult) {
  FilmResult result = std::move(workers_[index].result);
  result.succeeded = workers_[index].process.Wait() == 0;
  if (!result.succeeded && result.reason.empty()) {
    result.reason = kNoReason;
  }
  workers_.erase(workers_.begin() + static_cast<std::ptrdiff_t>(index));
  onResult(result);
}

// Stops all workers and waits for them. A worker that is writing its result finishes that first.
void Analysis::StopAll() {
  for (const Worker& worker : workers_) {
    worker.process.Signal(SIGTERM);
  }
  for (Worker& worker : workers_) {
    worker.process.Wait();
  }
  workers_.clear();
}

}  // namespace mirevo
