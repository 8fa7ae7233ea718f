// Turns this process into a transcoder, and records the process that watches one.
#pragma once

#include <string>
#include <vector>

#include "platform/unique_fd.h"
#include "state/stream_directory.h"

namespace LibOrvoQMX {

// Keeps this descriptor open, with the same number, in the program that this process becomes.
void KeepAcrossExec(const orvo::UniqueFd& descriptor);

// Enters this process in the register of running transcoders. Returns false, with a log line, if
// there is no room for one more of this kind.
bool RegisterTranscoder(bool hardware);

// Replaces this process's image by the program, which is the first element. Returns only on
// failure.
void ReplaceProcess(const std::vector<std::string>& commandLine);

// The film of a transcoder, which gets it as an open file.
struct PassedFilm {
  std::string path;
  std::string identity;  // when the stream was opened (orvo::MediaFile); "" if that is not known
  std::string demuxer;   // FFmpeg's name; "" if it is not known
};

// The same, as root if the process can become root. The program also gets the film's descriptor,
// and its number and the demuxer in the environment (contract/passed_film.h). It gets none if the
// film cannot be opened and its identity is not known. `action` is the name for the log. Returns
// only on failure, with false; it is a failure if the path leads to another file than before.
bool BecomeTranscoder(const char* action, const std::vector<std::string>& commandLine,
                      const PassedFilm& film);

// Ends the stream's monitor and records `pid` as the new one. A pid of 0 or less only ends the
// monitor; the old number stays recorded. With `wait`, waits at most about 5 seconds until the old
// monitor has ended. Returns false if the lock file cannot be opened, or the
// record cannot be read.
bool ReplaceMonitor(const StreamDirectory& directory, int pid, bool wait);

// Makes this process the stream's monitor, as above. Returns false also if the record cannot be
// written, on a full volume for example: nobody could end this monitor then, and what its
// transcoder has begun would count as finished.
bool BecomeMonitor(const StreamDirectory& directory);

}  // namespace LibOrvoQMX
