// Work that another process of the service does in a process of its own (fork_server.h).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "transcoder/worker.h"

namespace orvo::transcoder {

// Asks who listens at `socket`, a path below the system root. Null if nobody does, or nobody who
// answers at once; what came into the files by then is worth nothing.
std::unique_ptr<Worker> AskForFork(const char* socket, const std::string& text,
                                   const std::vector<int>& files);

}  // namespace orvo::transcoder
