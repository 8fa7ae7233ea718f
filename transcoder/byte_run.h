// A run whose output is a stream of bytes, and after whose failure another one can take over.
#pragma once

#include <string>
#include <vector>

#include "transcoder/film_copy.h"

namespace orvo::transcoder {

struct ByteRunEnd {
  int code = 0;          // 0 at the film's end
  bool canGoOn = false;  // it has failed before the first byte
};

// Runs `command` as a child and passes its output on to the descriptor that the command ends with,
// "pipe:N". This process stays, so that software can take over: nothing has been written then.
ByteRunEnd RunEngineBytes(std::vector<std::string> command);

// The same with a copy that reports its progress into `progress`. This process becomes FFmpeg with
// `command` where the copy fails before its first byte. Returns the exit code.
int RunCopyBytes(const FilmCopy& copy, int progress, const std::vector<std::string>& command);

// Runs `command`, which writes to a descriptor. The service's ready FFmpeg does, while this process
// stays; without one this process becomes FFmpeg. Returns the exit code.
int RunBytes(const std::vector<std::string>& command);

// Does the command write to a descriptor?
bool WritesBytes(const std::vector<std::string>& command);
// That descriptor; standard output if the command names none.
int OutputOf(const std::vector<std::string>& command);

}  // namespace orvo::transcoder
