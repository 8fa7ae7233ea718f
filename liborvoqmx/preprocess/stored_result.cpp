#include "preprocess/stored_result.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/io.h"
#include "platform/plat.h"
#include "util/md5.h"

namespace LibOrvoQMX::preprocess {
namespace {

constexpr char kRecordName[] = "/film";
constexpr size_t kLongestRecord = 65536;

bool IsOlder(const timespec& one, const timespec& other) {
  return one.tv_sec != other.tv_sec ? one.tv_sec < other.tv_sec : one.tv_nsec < other.tv_nsec;
}

// The modification time alone is not enough: a film that replaces another one by a move keeps its
// old time.
bool IsUpToDate(const std::string& film, const std::string& result) {
  struct stat filmStatus {};
  struct stat resultStatus {};
  if (stat(film.c_str(), &filmStatus) != 0) {
    return true;
  }
  return stat(result.c_str(), &resultStatus) == 0 &&
         !IsOlder(resultStatus.st_mtim, filmStatus.st_mtim) &&
         !IsOlder(resultStatus.st_mtim, filmStatus.st_ctim);
}

bool ReadBesideFilm(const std::string& film, PreprocessResultWrapper& result) {
  const std::string path = PreprocessUtil::GetPreprocessResultPath(film);
  return !path.empty() && IsUpToDate(film, path) && result.ReadFromFile(path);
}

// The record of the film's current state. All its texts are empty if there is none.
FilmRecord CurrentRecord(const std::string& film) {
  FilmRecord record = ReadFilmRecord(OwnFolder(film));
  return record.film == film && record.state == FilmState(film) ? record : FilmRecord{};
}

bool ReadOwn(const std::string& film, PreprocessResultWrapper& result) {
  const FilmRecord record = CurrentRecord(film);
  return !record.state.empty() && record.reason.empty() && result.ReadFromFile(OwnResultPath(film));
}

}  // namespace

std::string FilmState(const std::string& film) {
  struct stat status {};
  if (stat(film.c_str(), &status) != 0) {
    return "";
  }
  return std::to_string(status.st_size) + ' ' + std::to_string(status.st_mtim.tv_sec) + '.' +
         std::to_string(status.st_mtim.tv_nsec) + ' ' + std::to_string(status.st_ino);
}

std::string OwnFolder(const std::string& film) {
  return orvo::SystemPath(kOwnResults) + "/" + LibMirevo::GetMD5(film);
}

std::string OwnResultPath(const std::string& film) {
  const std::string name =
      std::filesystem::path(PreprocessUtil::GetPreprocessResultPath(film)).filename().string();
  return OwnFolder(film) + "/" + name;
}

FilmRecord ReadFilmRecord(const std::string& folder) {
  std::ifstream source(folder + kRecordName, std::ios::binary);
  std::string text;
  FilmRecord record;
  if (!orvo::ReadAll(source, text, kLongestRecord)) {
    return {};
  }
  std::istringstream file(text);
  // The path comes last because it may contain any byte except zero.
  if (!std::getline(file, record.state) || !std::getline(file, record.reason) ||
      !std::getline(file, record.film, '\0')) {
    return {};
  }
  return record;
}

bool WriteFilmRecord(const FilmRecord& record) {
  const std::string folder = OwnFolder(record.film);
  return libmrv::critical::orvosdk::ORVOFSMkdirPMirevo(folder, 0700) &&
         orvo::ReplaceFile(folder + kRecordName,
                           record.state + '\n' + record.reason + '\n' + record.film, 0600);
}

bool ReadCurrentResult(const std::string& film, PreprocessResultWrapper& result) {
  // The folder beside the film belongs to the media indexer.
  return libmrv::DoActionAsRoot("GetPreprocessPath", [&] {
    return !film.empty() && (ReadBesideFilm(film, result) || ReadOwn(film, result));
  });
}

bool HasCurrentResult(const std::string& film) {
  PreprocessResultWrapper result;
  return ReadCurrentResult(film, result) && result.end_time() > 0 &&
         !result.GetAllKeyframePtsTime().empty();
}

std::string FailureOf(const std::string& film) {
  return CurrentRecord(film).reason;
}

}  // namespace LibOrvoQMX::preprocess
