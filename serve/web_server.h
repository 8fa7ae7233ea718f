// The embedded web server: Debian's lighttpd with its own configuration.
#pragma once

#include <string>
#include <vector>

#include "platform/process.h"
#include "platform/unique_fd.h"
#include "serve/endpoint.h"

namespace serve {

struct WebServer {
  std::string pageFolder;                // files to serve unchanged
  std::string webapiFolder;              // holds entry.cgi
  std::string stateFolder;               // for the configuration and the log
  std::vector<std::string> sendFolders;  // hold all files that requests send
  std::vector<Endpoint> endpoints;
  // Names of this server, besides its addresses, with or without a port.
  std::vector<std::string> hosts;
  std::vector<std::string> origins;  // other sites whose pages may use it
  std::string certificate;           // PEM; "" for no encryption
  std::string key;                   // PEM; "" if it is in the certificate's file
  std::string doorkeeper;            // the library that limits connections (doorkeeper.cpp)
  int connectionsPerAddress = 0;     // at a time; 0 for no limit
  std::string readySegment;          // the script that sends segments (ready_segment.lua)
  std::vector<std::string> proxies;  // numeric addresses without that limit
  std::string clusterKey;            // the key file, an absolute path; "" without a cluster
  std::string clusterUrl;            // the balancer's scheme and host; "" for none
  int clusterBoxes = 0;              // how many boxes it spreads streams over
  std::string prefix;                // before all paths (IsPrefix); "" for none
  int keptSegments = 0;              // of each CMAF stream, in MiB; 0 for the default

  std::string Scheme() const { return certificate.empty() ? "http" : "https"; }
};

// Starts the server on the sockets of its endpoints; the caller closes them afterwards. The server
// is killed when this process ends. Returns no process, with errno set, on failure.
orvo::Process Start(const WebServer& server, const std::vector<orvo::UniqueFd>& sockets);

// Sends a short question on a new connection, where the answer arrives. The result is not open on
// failure.
orvo::UniqueFd Ask(const WebServer& server);

// Waits for the first answer. Returns false if the server ends instead.
bool Answers(const WebServer& server);

}  // namespace serve
