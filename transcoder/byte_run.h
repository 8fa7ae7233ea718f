// A run of a video engine whose output is a stream of bytes.
#pragma once

#include <string>
#include <vector>

namespace orvo::transcoder {

struct ByteRunEnd {
  int code = 0;          // 0 at the film's end
  bool canGoOn = false;  // the engine has failed before the first byte
};

// Runs `command` as a child and passes its output on to the descriptor that the command ends with,
// "pipe:N". This process stays, so that software can take over: nothing has been written then.
ByteRunEnd RunEngineBytes(std::vector<std::string> command);

// Does the command write to a descriptor?
bool WritesBytes(const std::vector<std::string>& command);

}  // namespace orvo::transcoder
