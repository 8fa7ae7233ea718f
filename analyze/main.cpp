// mirevo-analyze [--report] FILE...: stores beside each film where its pictures can be entered, so
// that it can be cut into segments without being encoded anew. Exit status 1 when a film could not
// be. With --report, lines on standard output tell another program how it goes: "progress" and the
// part from 0 to 1, "keyframes" and their number, "error" and a reason.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
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

// Tells how it goes with one film.
class Teller {
 public:
  virtual ~Teller() = default;
  virtual void Progress(double part) = 0;
  virtual void Success(size_t keyframes) = 0;
  virtual void Failure(const std::string& reason) = 0;
};

class ToPeople : public Teller {
 public:
  explicit ToPeople(const std::string& file) : file_(file) {}
  void Progress(double part) override {
    if (isShown_) {
      fprintf(stderr, "\r%s: %d %%", file_.c_str(), static_cast<int>(part * 100));
    }
  }
  void Success(size_t keyframes) override { Say(std::to_string(keyframes) + " key frames"); }
  void Failure(const std::string& reason) override { Say(reason); }

 private:
  void Say(const std::string& text) const {
    fprintf(stderr, "%s%s: %s\n", isShown_ ? "\r" : "", file_.c_str(), text.c_str());
  }

  const std::string& file_;
  bool isShown_ = isatty(STDERR_FILENO) != 0;
};

class ToProgram : public Teller {
 public:
  void Progress(double part) override { Say("progress", std::to_string(part)); }
  void Success(size_t keyframes) override { Say("keyframes", std::to_string(keyframes)); }
  void Failure(const std::string& reason) override { Say("error", reason); }

 private:
  static void Say(const char* word, const std::string& value) {
    printf("%s %s\n", word, value.c_str());
    fflush(stdout);
  }
};

bool Analyze(const std::string& file, Teller& teller) {
  std::error_code failure;
  const std::string film = std::filesystem::absolute(file, failure);
  orvo::analyze::FilmKeyframes found;
  std::string error;
  const auto progress = [&](double part) { teller.Progress(part); };
  if (!orvo::analyze::FindKeyframes(film, progress, found, error)) {
    teller.Failure(error);
    return false;
  }
  const std::string path = PreprocessUtil::GetPreprocessResultPath(film);
  if (!Store(found, path)) {
    teller.Failure("cannot write " + path);
    return false;
  }
  teller.Success(found.times.size());
  return true;
}

bool Analyze(const std::string& file, bool report) {
  ToPeople people(file);
  ToProgram program;
  return Analyze(file, report ? static_cast<Teller&>(program) : people);
}

}  // namespace

int main(int argc, char** argv) {
  const bool report = argc > 1 && std::strcmp(argv[1], "--report") == 0;
  const int first = report ? 2 : 1;
  if (argc <= first) {
    fprintf(stderr, "usage: mirevo-analyze [--report] FILE...\n");
    return 2;
  }
  bool succeeded = true;
  for (int i = first; i < argc; ++i) {
    succeeded = Analyze(argv[i], report) && succeeded;
  }
  return succeeded ? 0 : 1;
}
