// mirevo-analyze [--report] FILE...: stores the key frame times of each film beside it, so that the
// film can be cut into segments without re-encoding. The exit status is 1 if a film failed. With
// --report, it writes lines for another program to standard output: "progress" and the part from 0
// to 1, "keyframes" and their number, "error" and a reason.
//
// mirevo-analyze --watch FILE-OR-FOLDER...: does the same in the background for all films in the
// folders and for films that are added or changed, and keeps the catalog of the folders, until a
// signal ends it. With --catalog instead of --watch, it keeps only the catalog.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "background.h"
#include "film_analysis.h"

namespace {

// Reports the progress and the result of one film.
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
  size_t keyframes = 0;
  std::string error;
  const auto progress = [&](double part) { teller.Progress(part); };
  if (!orvo::analyze::AnalyzeFilm(film, progress, keyframes, error)) {
    teller.Failure(error);
    return false;
  }
  teller.Success(keyframes);
  return true;
}

bool Analyze(const std::string& file, bool report) {
  ToPeople people(file);
  ToProgram program;
  return Analyze(file, report ? static_cast<Teller&>(program) : people);
}

int Usage() {
  fprintf(stderr,
          "usage: mirevo-analyze [--report] FILE...\n"
          "       mirevo-analyze --watch|--catalog FILE-OR-FOLDER...\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string option = argc > 1 ? argv[1] : "";
  const bool report = option == "--report";
  const bool watch = option == "--watch";
  const bool isBackground = watch || option == "--catalog";
  const int first = report || isBackground ? 2 : 1;
  if (argc <= first) {
    return Usage();
  }
  if (isBackground) {
    return orvo::analyze::WatchInBackground({argv + first, argv + argc}, watch);
  }
  bool succeeded = true;
  for (int i = first; i < argc; ++i) {
    succeeded = Analyze(argv[i], report) && succeeded;
  }
  return succeeded ? 0 : 1;
}
