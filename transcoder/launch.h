// Becoming FFmpeg.
#pragma once

#include <string>
#include <vector>

namespace orvo::transcoder {

inline constexpr int kExitUsage = 64;      // EX_USAGE: nothing was started
inline constexpr int kNiceness = 10;       // of a transcoder, or its starter's if that is higher
inline constexpr int kExitNotFound = 127;  // FFmpeg cannot be started

// Gives this process what a transcoder shall start with, whatever its starter left: the default
// answers to the signals that stop one, unblocked; standard descriptors that are open; a priority
// below that of the programs that serve requests.
void PrepareProcess();

// A file without a name that FFmpeg writes its progress into and that ends with it. A status page
// reads it through /proc/PID/fd, where it stands as "/memfd:orvo-progress (deleted)". The
// descriptor outlives the exec. It is the starter's file if that passed one
// (contract/passed_progress.h). Returns -1 when there is none to be had: the film is worth more
// than its progress.
int OpenProgressFile();

// The starter's file, or -1.
int PassedProgressFile();

// Replaces this process's image by command[0] with `command` as its arguments; the process id
// stays. Returns only on failure, with the exit code.
int Become(const std::vector<std::string>& command);

// Logs why this FFmpeg cannot be started. Returns the exit code.
int RefuseToStart(const std::string& executable, int error);

}  // namespace orvo::transcoder
