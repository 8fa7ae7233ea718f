// Becoming a transcoder, and keeping track of the process that watches one.
#pragma once

#include <string>
#include <vector>

#include "platform/unique_fd.h"
#include "state/stream_directory.h"

namespace LibOrvoQMX {

// The program that this process becomes has this descriptor, under the same number.
void KeepAcrossExec(const orvo::UniqueFd& descriptor);

// Enters this process in the register of running transcoders. False, with a log line, when there is
// no room for one more of this kind.
bool RegisterTranscoder(bool hardware);

// Replaces this process's image by the command's program, which is its first element. Returns only
// on failure.
void ReplaceProcess(const std::vector<std::string>& commandLine);

// The same, as root where root is to be had. `action`: what it is called in the log. Returns false.
bool BecomeTranscoder(const char* action, const std::vector<std::string>& commandLine);

// Makes `pid` the stream's monitor and ends the one before it; a pid of 0 or less only does the
// latter, and its number stays recorded. `wait`: until it is gone, about 5 seconds at most. False
// when the lock file cannot be opened.
bool ReplaceMonitor(const StreamDirectory& directory, int pid, bool wait);

}  // namespace LibOrvoQMX
