#include "worker.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <functional>

#include "confined_reader.h"
#include "film_analysis.h"
#include "film_previews.h"
#include "platform/idle.h"
#include "platform/process_launch.h"
#include "preprocess/stored_result.h"

namespace orvo::analyze {
namespace {

using LibOrvoQMX::preprocess::FilmState;
using LibOrvoQMX::preprocess::WriteFilmRecord;

int Analyze(const std::string& film) {
  const std::string state = FilmState(film);
  FilmKeyframes found;
  std::string error;
  int signal = 0;
  if (!FindKeyframesConfined(
          film, [](double) {}, found, error, signal)) {
    if (signal != 0) {
      return 128 + signal;  // as if it had been this process
    }
    // A file that cannot be read is not recorded: its permissions may change while the film stays
    // the same.
    if (access(film.c_str(), R_OK) == 0) {
      WriteFilmRecord({state, error, film});
    }
  } else if (StoreKeyframes(found, film, state, error)) {
    return 0;
  }
  fprintf(stderr, "mirevo-analyze: %s: %s\n", film.c_str(), error.c_str());
  return 1;
}

Process StartIdle(const std::function<int()>& work) {
  LaunchOptions options;
  options.streams = StandardStreams::kKept;
  // With this signal, the worker finishes a result that it is writing.
  options.parentDeath.signal = SIGTERM;
  return Fork(
      [&work] {
        BecomeIdle();
        return work();
      },
      options);
}

}  // namespace

Process StartWorker(const std::string& film) {
  return StartIdle([&film] { return Analyze(film); });
}

Process StartPreviewer(const std::string& film) {
  return StartIdle([&film] {
    MakePreviews(film);
    return 0;
  });
}

}  // namespace orvo::analyze
