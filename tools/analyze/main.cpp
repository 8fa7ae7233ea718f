// mirevo-analyze FILE...: stores beside each film where its pictures can be entered, so that it can
// be cut into segments without being encoded anew. Exit status 1 when a film could not be.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

#include "film_keyframes.h"
#include "platform/plat.h"
#include "preprocess/preprocess_result.h"

namespace {

using LibOrvoQMX::preprocess::PreprocessResultWrapper;
using LibOrvoQMX::preprocess::PreprocessUtil;

// For its life, an interruption waits: it would leave a file behind that has no name yet.
class Uninterrupted {
 public:
  Uninterrupted() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &previous_);
  }
  ~Uninterrupted() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }
  Uninterrupted(const Uninterrupted&) = delete;
  Uninterrupted& operator=(const Uninterrupted&) = delete;

 private:
  sigset_t previous_;
};

bool Store(const orvo::analyze::FilmKeyframes& found, const std::string& path) {
  PreprocessResultWrapper result;
  for (const double time : found.times) {
    result.PushPtsTime(time);
  }
  result.set_end_time(found.endTime);

  const Uninterrupted writing;
  const std::string directory = std::filesystem::path(path).parent_path();
  const std::string temporary = path + "." + std::to_string(getpid());
  if (libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(directory, 0777) &&
      result.WriteToFile(temporary) && rename(temporary.c_str(), path.c_str()) == 0) {
    return true;
  }
  unlink(temporary.c_str());
  return false;
}

bool Analyze(const std::string& file) {
  const bool isShown = isatty(STDERR_FILENO) != 0;
  const auto progress = [&](double part) {
    if (isShown) {
      fprintf(stderr, "\r%s: %d %%", file.c_str(), static_cast<int>(part * 100));
    }
  };
  const auto say = [&](const std::string& text) {
    fprintf(stderr, "%s%s: %s\n", isShown ? "\r" : "", file.c_str(), text.c_str());
  };
  std::error_code failure;
  const std::string film = std::filesystem::absolute(file, failure);
  orvo::analyze::FilmKeyframes found;
  std::string error;
  if (!orvo::analyze::FindKeyframes(film, progress, found, error)) {
    say(error);
    return false;
  }
  const std::string path = PreprocessUtil::GetPreprocessResultPath(film);
  if (!Store(found, path)) {
    say("cannot write " + path);
    return false;
  }
  say(std::to_string(found.times.size()) + " key frames");
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: mirevo-analyze FILE...\n");
    return 2;
  }
  bool succeeded = true;
  for (int i = 1; i < argc; ++i) {
    succeeded = Analyze(argv[i]) && succeeded;
  }
  return succeeded ? 0 : 1;
}
