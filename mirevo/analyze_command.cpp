#include "mirevo/analyze_command.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <numeric>
#include <thread>

#include "mirevo/analysis.h"
#include "mirevo/exit_codes.h"
#include "mirevo/film_argument.h"
#include "mirevo/output.h"
#include "preprocess/stored_result.h"
#include "util/media_names.h"

namespace mirevo {
namespace {

namespace fs = std::filesystem;
using LibOrvoQMX::preprocess::HasCurrentResult;

constexpr char kWorker[] = "mirevo-analyze";
constexpr size_t kBarLength = 30;
constexpr unsigned kMaxJobs = 64;

struct Options {
  std::vector<std::string> paths;
  unsigned jobs = 0;
  bool force = false;
  bool json = false;
};

// --- Which films ---

void AddFolder(const std::string& folder, std::vector<std::string>& films) {
  std::error_code failure;
  const size_t before = films.size();
  for (fs::recursive_directory_iterator
           entry(folder, fs::directory_options::skip_permission_denied, failure),
       end;
       !failure && entry != end; entry.increment(failure)) {
    std::error_code gone;
    if (entry->is_directory(gone)) {
      if (orvo::IsSystemFolderName(entry->path().filename().string())) {
        entry.disable_recursion_pending();
      }
    } else if (entry->is_regular_file(gone) &&
               orvo::IsFilmName(entry->path().filename().string())) {
      films.push_back(entry->path().string());
    }
  }
  std::sort(films.begin() + static_cast<std::ptrdiff_t>(before), films.end());
}

// Appends the films that the paths name or contain. kOk, or the exit code for a path that does not
// exist.
int FindFilms(const std::vector<std::string>& paths, std::vector<std::string>& films) {
  for (const std::string& path : paths) {
    const std::string resolved = RealPath(path);
    std::error_code failure;
    if (resolved.empty()) {
      return NoSuchPath(path);
    }
    if (fs::is_directory(resolved, failure)) {
      AddFolder(resolved, films);
    } else {
      films.push_back(resolved);
    }
  }
  return kOk;
}

// --- Output ---

class Report {
 public:
  explicit Report(bool json) : json_(json) {}

  void AddCurrent(const std::string& film) {
    ++current_;
    Add(film, "current");
  }
  void Add(const FilmResult& result) {
    Clear();
    ++(result.succeeded ? analyzed_ : failed_);
    Json::Value& entry = Add(result.path, result.succeeded ? "analyzed" : "failed");
    if (result.succeeded) {
      entry["keyframes"] = static_cast<Json::UInt64>(result.keyframes);
    } else {
      entry["reason"] = result.reason;
    }
    if (!result.succeeded) {
      Complain(result.path + ": " + result.reason);
    } else if (!json_) {
      std::cout << Printable(result.path) << ": " << result.keyframes << " key frames\n";
    }
  }
  // Shows the progress as a bar, on a terminal only.
  void Show(const AnalysisState& state) {
    if (!isTerminal_) {
      return;
    }
    const double running = std::accumulate(state.running.begin(), state.running.end(), 0.0);
    const double part =
        (static_cast<double>(state.done) + running) / static_cast<double>(state.all);
    const auto full = static_cast<size_t>(part * kBarLength);
    std::cerr << "\r\033[K[" << std::string(full, '#') << std::string(kBarLength - full, '.')
              << "] " << static_cast<int>(part * 100) << " %, " << state.done << " of " << state.all
              << " films" << std::flush;
    isShown_ = true;
  }
  void Clear() {
    if (isShown_) {
      std::cerr << "\r\033[K" << std::flush;
      isShown_ = false;
    }
  }

  int Finish(bool interrupted) {
    Clear();
    if (json_) {
      Json::Value document(Json::objectValue);
      document["films"] = films_;
      document["analyzed"] = analyzed_;
      document["current"] = current_;
      document["failed"] = failed_;
      document["interrupted"] = interrupted;
      PrintJson(document);
    } else {
      std::cout << analyzed_ << " analyzed, " << current_ << " already current, " << failed_
                << " failed" << (interrupted ? "; interrupted" : "") << "\n";
    }
    return failed_ > 0 || interrupted ? kFailed : kOk;
  }

 private:
  Json::Value& Add(const std::string& film, const char* state) {
    Json::Value& entry = films_.append(Json::Value(Json::objectValue));
    entry["path"] = film;
    entry["state"] = state;
    return entry;
  }

  bool json_;
  bool isTerminal_ = isatty(STDERR_FILENO) != 0;
  bool isShown_ = false;
  Json::Value films_{Json::arrayValue};
  unsigned analyzed_ = 0;
  unsigned current_ = 0;
  unsigned failed_ = 0;
};

// The worker is in the same folder as this program.
std::string WorkerPath() {
  std::error_code failure;
  return (fs::read_symlink("/proc/self/exe", failure).parent_path() / kWorker).string();
}

int Analyze(const Options& options) {
  std::vector<std::string> found;
  if (const int code = FindFilms(options.paths, found); code != kOk) {
    return code;
  }
  Report report(options.json);
  std::vector<std::string> films;
  for (const std::string& film : found) {
    if (!options.force && HasCurrentResult(film)) {
      report.AddCurrent(film);
    } else {
      films.push_back(film);
    }
  }
  const unsigned jobs = options.jobs != 0 ? options.jobs : std::thread::hardware_concurrency();
  Analysis analysis(WorkerPath(), jobs);
  const bool completed = analysis.Run(
      films, [&](const FilmResult& result) { report.Add(result); },
      [&](const AnalysisState& state) { report.Show(state); });
  return report.Finish(!completed);
}

}  // namespace

void AddAnalyzeCommand(CLI::App& app, int& exitCode) {
  auto options = std::make_shared<Options>();
  CLI::App* const command = app.add_subcommand(
      "analyze",
      "Find and store the key frames of films, so that segments of copied video are exact");
  command->add_option("path", options->paths, "Films and folders of films")
      ->required()
      ->type_name("FILE-OR-FOLDER");
  command
      ->add_option("--jobs", options->jobs,
                   "How many films to analyze at the same time; default: one per processor")
      ->check(CLI::Range(1U, kMaxJobs))
      ->type_name("N");
  command->add_flag("--force", options->force,
                    "Analyze films again whose stored result is current");
  command->add_flag("--json", options->json, "Print the results as JSON");
  command->callback([options, &exitCode] { exitCode = Analyze(*options); });
}

}  // namespace mirevo
