// The embedded web server: Debian's lighttpd with a configuration of its own.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/unique_fd.h"

namespace serve {

// A listening socket on the loopback address. `port` 0 takes any free one; it is filled in. Not
// open, with errno set, when the port is taken.
orvo::UniqueFd ListenOnLoopback(int& port);

struct WebServer {
  std::string pageFolder;                // served as it is
  std::string webapiFolder;              // holds entry.cgi
  std::string stateFolder;               // for the configuration and the log
  std::vector<std::string> sendFolders;  // what requests send by name lies in one of these
  int port = 0;
};

// Starts the server on the socket, which it takes over. It dies with this process. -1, with errno
// set, when it cannot be started.
pid_t Start(const WebServer& server, orvo::UniqueFd socket);

// Waits for a first answer; false when the server ends instead.
bool Answers(int port);

}  // namespace serve
