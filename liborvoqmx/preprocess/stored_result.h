// Which stored result belongs to a film as it is now. A film's own folder comes first; what cannot
// be stored there lies in a folder of the service's own, and so does the reason of a failure.
#pragma once

#include <string>

#include "platform/export.h"
#include "preprocess/preprocess_result.h"

namespace LibOrvoQMX::preprocess {

// The folder of the service's own, below the system root: a folder for each film in it, named by
// the MD5 of the film's path.
inline constexpr char kOwnResults[] = "/var/packages/Mirevo/cache/keyframes";

// Size, modification time and inode of a film, one line; "" when there is no such file.
ORVO_API std::string FilmState(const std::string& film);

// What the service's own folder of a film tells of it, besides a result.
struct FilmRecord {
  std::string state;   // FilmState() of the film when it was analyzed
  std::string reason;  // why there is no result; "" where there is one
  std::string film;    // the path
};

ORVO_API std::string OwnFolder(const std::string& film);
ORVO_API std::string OwnResultPath(const std::string& film);
// The record in one of the folders. Empty texts where there is none.
ORVO_API FilmRecord ReadFilmRecord(const std::string& folder);
// Replaces the film's record and makes its folder. False when it cannot be written.
ORVO_API bool WriteFilmRecord(const FilmRecord& record);

// Reads the result that belongs to the film as it is now, as root. One beside the film belongs to
// it unless it is older than the file. False without one, and for a damaged one.
ORVO_API bool ReadCurrentResult(const std::string& film, PreprocessResultWrapper& result);

// Is there such a result, with key frames and an end?
ORVO_API bool HasCurrentResult(const std::string& film);

// Why the film, as it is now, could not be analyzed; "" when it has not been tried.
ORVO_API std::string FailureOf(const std::string& film);

}  // namespace LibOrvoQMX::preprocess
