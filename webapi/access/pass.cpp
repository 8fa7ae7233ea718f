#include "webapi/access/pass.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <string>

#include "platform/io.h"
#include "platform/plat.h"
#include "util/shared_state.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

constexpr char kWebServer[] = "/run/mirevo/lighttpd.conf";
constexpr mode_t kMode = 0600;

// A file that changes after this process has read it gets a later second than the recorded one, if
// the recorded one is this much older than the process.
constexpr time_t kSettledSeconds = 2;
const time_t begun = time(nullptr);

// The state that the script compares, which knows whole seconds only; "-" if there is no file.
// Clears `isSettled` for a file that changed a moment ago.
std::string StateOf(const std::string& path, bool& isSettled) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    return "-";
  }
  const time_t changed = std::max(status.st_mtime, status.st_ctime);
  isSettled = isSettled && changed + kSettledSeconds < begun;
  return std::to_string(status.st_ino) + " " + std::to_string(status.st_size) + " " +
         std::to_string(status.st_mtime) + " " + std::to_string(status.st_ctime);
}

bool MayHavePass(const Caller& caller) {
  return !caller.isLoginRequired || (!caller.linkedStream.empty() && caller.roots.empty());
}

}  // namespace

void LeavePass(const Caller& caller, const Ticket& ticket) {
  const std::string path = ticket.PassPath();
  const std::string folder = RealPath(ticket.Folder());
  bool isSettled = true;
  std::string pass = "pass 1\n" + folder + "\n";
  pass += (caller.isLoginRequired ? StreamLink(ticket) : "") + "\n";
  pass += StateOf(ticket.FilePath(), isSettled) + "\n";
  pass += StateOf(orvo::SharedStatePath("accounts"), isSettled) + "\n";
  pass += StateOf(orvo::SystemPath(kWebServer), isSettled) + "\n";
  const std::string sealed = ticket.Parameter(kSealedParameter);
  pass += sealed.empty() ? "" : sealed + "\n";
  const bool isLine = folder.find('\n') == std::string::npos && !folder.empty();
  if (MayHavePass(caller) && isSettled && isLine) {
    orvo::ReplaceFile(path, pass, kMode);
  }
}

}  // namespace webapi
