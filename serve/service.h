// Runs the whole system on one machine, for the user who starts it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "contract/kept_segments.h"

namespace serve {

// The folder with the state of a running service, below the system root.
inline constexpr char kStateFolder[] = "/run/mirevo";
// The address of the page, in one line. The file exists while the service answers.
inline constexpr char kAddressFile[] = "/address";
// The state of the background analysis; see docs/state-files.md.
inline constexpr char kAnalysisFile[] = "/analysis";

struct Options {
  std::vector<std::string> media;    // files and folders; the page asks for one if there is none
  std::optional<int> port;           // 0 for any; unset: the usual one, or any if that is in use
  bool browser = true;               // open the page if there is a desktop
  bool analysis = true;              // find key frames and measure the machine in the background
  bool conversions = true;           // convert queued films in the background
  std::vector<std::string> listen;   // addresses; if empty, only this machine
  std::vector<std::string> hosts;    // names of the service (IsHost)
  std::vector<std::string> origins;  // other sites whose pages may use it (IsOrigin)
  std::vector<std::string> proxies;  // numeric addresses of reverse proxies
  std::string prefix;                // before all paths (IsPrefix); "" for none
  int connectionsPerAddress = 512;   // at a time; proxies have no limit
  std::string certificate;           // PEM file; "" for no encryption
  std::string key;                   // PEM file; "" if the certificate file holds it
  std::vector<std::string> dlnaInterfaces;  // where televisions are; empty for all local networks
  std::string agent;       // where a balancer asks (ParseAuthority); "" for nowhere
  std::string clusterKey;  // key file (webapi/cluster); "" for a service on its own
  std::string clusterUrl;  // the balancer (IsOrigin); "" if boxes do not ask each other
  int clusterBoxes = 0;    // how many the balancer knows
  int keptSegments = orvo::kKeptSegmentsMebibytes;  // of each CMAF stream, in MiB
};

// Is this a host in the form of a URL: a name or an address, in lower case, with or without a port?
bool IsHost(const std::string& text);
// Is this exactly a scheme and a host: "https://tv.example"?
bool IsOrigin(const std::string& text);
// Is this a path that can stand before all paths of the service: "/films", "/a/b"?
bool IsPrefix(const std::string& text);

// Serves until SIGINT, SIGTERM or SIGHUP and leaves no process behind. The exit status: 0 when it
// was told to stop; otherwise, with the reason on standard error, EX_NOINPUT for media that do not
// exist, EX_CANTCREAT for state that cannot be written, 1 for the rest.
// Other machines are only let in where there are accounts. On a first start, without media and
// accounts, they reach a page that asks for the word of accounts/first_word.h.
int Serve(const Options& options);

}  // namespace serve
