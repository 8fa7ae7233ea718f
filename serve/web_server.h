// The embedded web server: Debian's lighttpd with a configuration of its own.
#pragma once

#include <string>
#include <vector>

#include "platform/process.h"
#include "platform/unique_fd.h"
#include "serve/endpoint.h"

namespace serve {

struct WebServer {
  std::string pageFolder;                // served as it is
  std::string webapiFolder;              // holds entry.cgi
  std::string stateFolder;               // for the configuration and the log
  std::vector<std::string> sendFolders;  // what requests send by name lies in one of these
  std::vector<Endpoint> endpoints;
  // What a browser may call this server, besides its addresses: names, with or without a port.
  std::vector<std::string> hosts;
  std::vector<std::string> origins;  // whose pages may use it, besides its own
  std::string certificate;           // PEM; "" for no encryption
  std::string key;                   // PEM; "" where it is in the certificate's file

  std::string Scheme() const { return certificate.empty() ? "http" : "https"; }
};

// Starts the server on the sockets of its endpoints, which it takes over. It dies with this
// process. No process, with errno set, when it cannot be started.
orvo::Process Start(const WebServer& server, std::vector<orvo::UniqueFd> sockets);

// Waits for a first answer; false when the server ends instead.
bool Answers(const WebServer& server);

}  // namespace serve
