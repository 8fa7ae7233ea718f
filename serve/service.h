// The whole system on one machine, for the user who starts it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace serve {

// Where a running service keeps what others look for, below the system root.
inline constexpr char kStateFolder[] = "/run/mirevo";
// One line: the address of the page. There while the service answers.
inline constexpr char kAddressFile[] = "/address";

struct Options {
  std::vector<std::string> media;    // files and folders
  std::optional<int> port;           // 0 for any; without one the usual, or any where that is taken
  bool browser = true;               // open the page, where there is a desktop
  bool analysis = true;              // look for films' key frames in the background
  std::vector<std::string> listen;   // addresses; without any this machine only
  std::vector<std::string> hosts;    // names that the service goes by (IsHost)
  std::vector<std::string> origins;  // foreign pages that may use it (IsOrigin)
  std::string certificate;           // PEM file; "" for no encryption
  std::string key;                   // PEM file; "" where the certificate's holds it
};

// Is this a name or an address as it stands in a URL, in lower case, with or without a port?
bool IsHost(const std::string& text);
// Is this a scheme, a host and nothing else: "https://tv.example"?
bool IsOrigin(const std::string& text);

// Serves until SIGINT, SIGTERM or SIGHUP and leaves no process behind. The exit status: 0 when it
// was told to stop; otherwise, with the reason on standard error, EX_NOINPUT for media that do not
// exist, EX_CANTCREAT for state that cannot be written, 1 for the rest.
// Other machines are only let in where there are accounts.
int Serve(const Options& options);

}  // namespace serve
