// Finds the stored result of a film's current state. The folder beside the film comes first.
// Results that cannot be stored there are in the service's own folder, which also holds the reasons
// of failures.
#pragma once

#include <string>

#include "platform/export.h"
#include "preprocess/preprocess_result.h"

namespace LibOrvoQMX::preprocess {

// The service's own folder, below the system root. It has a folder for each film, named after the
// MD5 of the film's path.
inline constexpr char kOwnResults[] = "/var/packages/Mirevo/cache/keyframes";

// Size, modification time and inode of a film, in one line; "" if there is no such file.
ORVO_API std::string FilmState(const std::string& film);

// The record about a film in the service's own folder.
struct FilmRecord {
  std::string state;   // FilmState() at the time of the analysis
  std::string reason;  // why there is no result; "" if there is one
  std::string film;    // the path
};

ORVO_API std::string OwnFolder(const std::string& film);
ORVO_API std::string OwnResultPath(const std::string& film);
// Reads the record in one of these folders. All its texts are empty if there is none.
ORVO_API FilmRecord ReadFilmRecord(const std::string& folder);
// Writes the film's record. Makes its folder if needed. Returns false if the record cannot be
// written.
ORVO_API bool WriteFilmRecord(const FilmRecord& record);

// Reads, as root, the result of the film's current state. A result beside the film is valid unless
// it is older than the film. Returns false if there is no valid result or it is damaged.
ORVO_API bool ReadCurrentResult(const std::string& film, PreprocessResultWrapper& result);

// Does such a result exist, with key frames and an end?
ORVO_API bool HasCurrentResult(const std::string& film);

// Why the film's current state could not be analyzed; "" if no analysis has failed.
ORVO_API std::string FailureOf(const std::string& film);

}  // namespace LibOrvoQMX::preprocess
