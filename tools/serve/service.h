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
  std::vector<std::string> media;  // files and folders
  std::optional<int> port;         // 0 for any; without one the usual, or any where that is taken
  bool browser = true;             // open the page, where there is a desktop
};

// Serves until SIGINT, SIGTERM or SIGHUP and leaves no process behind. The exit status: 0 when it
// was told to stop, 1, with the reason on standard error, otherwise.
int Serve(const Options& options);

}  // namespace serve
