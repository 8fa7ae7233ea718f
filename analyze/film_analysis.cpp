#include "film_analysis.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <filesystem>

#include "confined_reader.h"
#include "platform/beneath.h"
#include "platform/plat.h"
#include "platform/unique_fd.h"
#include "preprocess/preprocess_result.h"
#include "preprocess/stored_result.h"
#include "util/number.h"

namespace orvo::analyze {
namespace {

namespace fs = std::filesystem;
using LibOrvoQMX::preprocess::FilmState;
using LibOrvoQMX::preprocess::OwnFolder;
using LibOrvoQMX::preprocess::OwnResultPath;
using LibOrvoQMX::preprocess::PreprocessResultWrapper;
using LibOrvoQMX::preprocess::PreprocessUtil;
using LibOrvoQMX::preprocess::WriteFilmRecord;

PreprocessResultWrapper ResultOf(const FilmKeyframes& found) {
  PreprocessResultWrapper result;
  for (const double time : found.times) {
    result.PushPtsTime(time);
  }
  result.set_end_time(found.endTime);
  return result;
}

// Removes files that a process left when it was killed while writing.
void RemoveLeftovers(const fs::path& path) {
  const std::string prefix = path.filename().string() + ".";
  std::error_code failure;
  for (fs::directory_iterator entry(path.parent_path(), failure), end; !failure && entry != end;
       entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    if (name.rfind(prefix, 0) == 0 &&
        !PlatProcAlive(LibOrvoQMX::LeadingInt(name.substr(prefix.size())))) {
      unlink(entry->path().c_str());
    }
  }
}

// A film may have a modification time in the future. Its result must not look older.
void MakeNoOlderThan(const std::string& film, const UniqueFd& file) {
  struct stat status {};
  if (stat(film.c_str(), &status) == 0 && status.st_mtim.tv_sec >= time(nullptr)) {
    const timespec times[] = {{0, UTIME_OMIT}, status.st_mtim};
    futimens(file.Get(), times);
  }
}

// A name that leads to this open file or folder, whatever its own name leads to now.
std::string PlaceOf(const UniqueFd& file) {
  return "/proc/self/fd/" + std::to_string(file.Get());
}

// Users who may write to the folder can put a link there. The result must not go where it leads.
UniqueFd MakeNew(const std::string& path) {
  unlink(path.c_str());
  return UniqueFd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
}

bool Replace(const PreprocessResultWrapper& result, const std::string& film,
             const std::string& path) {
  RemoveLeftovers(path);
  const std::string aside = path + "." + std::to_string(getpid());
  const UniqueFd file = MakeNew(aside);
  if (file.IsOpen() && result.WriteToFile(PlaceOf(file))) {
    MakeNoOlderThan(film, file);
    if (rename(aside.c_str(), path.c_str()) == 0) {
      return true;
    }
  }
  unlink(aside.c_str());
  return false;
}

// The old record goes first, so no reader uses an old result for the new film.
bool StoreOwn(const PreprocessResultWrapper& result, const std::string& film,
              const std::string& state) {
  const std::string folder = OwnFolder(film);
  unlink((folder + "/film").c_str());
  return libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, 0700) &&
         Replace(result, film, OwnResultPath(film)) && WriteFilmRecord({state, "", film});
}

UniqueFd MakeFolderIn(const UniqueFd& parent, const std::string& name) {
  mkdirat(parent.Get(), name.c_str(), 0777);
  return UniqueFd(
      openat(parent.Get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// The folder for the film's result, which is made if it is missing. Not open if it cannot be made
// or written to, or if its place is a link: that may lead to any folder of the machine.
UniqueFd OpenFolderBeside(const std::string& film, const fs::path& result) {
  std::error_code failure;
  const fs::path folder = fs::canonical(fs::absolute(film, failure).parent_path(), failure);
  const UniqueFd root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
  const UniqueFd parent = FindBeneath(root, folder.relative_path().string());
  const fs::path own = result.parent_path();
  const UniqueFd all = MakeFolderIn(parent, own.parent_path().filename());
  UniqueFd found = MakeFolderIn(all, own.filename());
  if (found.IsOpen() && access(PlaceOf(found).c_str(), W_OK | X_OK) != 0) {
    found.Reset();
  }
  return found;
}

// The film's data in the service's own folder is no longer needed.
bool StoreBeside(const PreprocessResultWrapper& result, const std::string& film,
                 const std::string& path) {
  std::error_code failure;
  return Replace(result, film, path) && (fs::remove_all(OwnFolder(film), failure), true);
}

}  // namespace

Uninterrupted::Uninterrupted() {
  sigset_t all;
  sigfillset(&all);
  sigprocmask(SIG_BLOCK, &all, &previous_);
}

Uninterrupted::~Uninterrupted() {
  sigprocmask(SIG_SETMASK, &previous_, nullptr);
}

bool StoreKeyframes(const FilmKeyframes& found, const std::string& film, const std::string& state,
                    std::string& error) {
  if (FilmState(film) != state) {
    error = "the film changed during the analysis";
    return false;
  }
  const Uninterrupted writing;
  const PreprocessResultWrapper result = ResultOf(found);
  const fs::path path = PreprocessUtil::GetPreprocessResultPath(film);
  const UniqueFd folder = OpenFolderBeside(film, path);
  const std::string place = PlaceOf(folder) + '/' + path.filename().string();
  if (folder.IsOpen() ? StoreBeside(result, film, place) : StoreOwn(result, film, state)) {
    return true;
  }
  error = "cannot write " + (folder.IsOpen() ? path.string() : OwnResultPath(film));
  return false;
}

bool AnalyzeFilm(const std::string& film, const Progress& progress, size_t& keyframes,
                 std::string& error) {
  const std::string state = FilmState(film);
  FilmKeyframes found;
  int signal = 0;
  if (!FindKeyframesConfined(film, progress, found, error, signal)) {
    return false;
  }
  keyframes = found.times.size();
  return StoreKeyframes(found, film, state, error);
}

}  // namespace orvo::analyze
