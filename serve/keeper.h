// The process that stands between the service and all processes below it.
//
//   mirevo serve ── keeper ── lighttpd ── entry.cgi
//                      ├ ffmpeg --copies and --ready, which may end without harm
//                      └ monitors, transcoders and guardians, which outlive their request
//
// The keeper starts the web server and the parents of copies and of conversions, adopts and reaps
// every process below it, and keeps the register of transcoders true. It continues stopped
// processes, because one of them would hold a seat or a stream for ever. If the service ends, for
// whatever reason, the keeper ends all of them. If the keeper ends, the web server ends with it,
// and the service adopts the rest and ends it.
#pragma once

#include <optional>
#include <vector>

#include "platform/process.h"
#include "platform/unique_fd.h"
#include "serve/web_server.h"
#include "util/file_lock.h"

namespace serve {

// What the service opens and the keeper must not keep.
struct Belongings {
  std::vector<orvo::UniqueFd> sockets;  // of the web server's endpoints
  std::optional<orvo::FileLock> alone;  // another service may start before the keeper has ended
};

// Starts the keeper and the web server. Afterwards only the web server has the sockets, so they
// close when it ends. The keeper ends with the web server, and on SIGTERM, which leaves all other
// processes to the caller. Returns no process, with errno set, if the web server cannot be started.
orvo::Process StartKeeper(const WebServer& server, Belongings& belongings);

}  // namespace serve
