#include "worker.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "film_analysis.h"
#include "platform/pidfd.h"
#include "platform/plat.h"
#include "preprocess/stored_result.h"

namespace orvo::analyze {
namespace {

using LibOrvoQMX::preprocess::FilmState;
using LibOrvoQMX::preprocess::WriteFilmRecord;

// No film takes an hour of a processor to read through.
constexpr rlimit kProcessorSeconds = {3600, 3600};

int Analyze(const std::string& film) {
  const std::string state = FilmState(film);
  FilmKeyframes found;
  std::string error;
  if (!FindKeyframes(
          film, [](double) {}, found, error)) {
    // The rights to read it may change without the film.
    if (access(film.c_str(), R_OK) == 0) {
      WriteFilmRecord({state, error, film});
    }
  } else if (StoreKeyframes(found, film, state, error)) {
    return 0;
  }
  fprintf(stderr, "mirevo-analyze: %s: %s\n", film.c_str(), error.c_str());
  return 1;
}

[[noreturn]] void Run(const std::string& film, pid_t parent) {
  // SIGTERM lets it finish a result that it is just writing.
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) {
    _exit(1);
  }
  setrlimit(RLIMIT_CPU, &kProcessorSeconds);
  _exit(Analyze(film));
}

}  // namespace

Worker::Worker(const std::string& film) : film_(film) {
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) {
    Run(film_, parent);
  }
  if (pid_ > 0) {
    process_ = OpenProcess(pid_);
  }
}

Worker::~Worker() {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    Finish();
  }
}

int Worker::Finish() {
  const int status = WaitForStatus(pid_);
  pid_ = -1;
  process_.Reset();
  return status;
}

}  // namespace orvo::analyze
