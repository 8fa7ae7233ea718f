#include "catalog/writers.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>

#include "platform/unique_fd.h"

namespace catalog {
namespace {

using std::chrono::seconds;

// If the system cannot tell whether a process writes a film, the film must be this old.
constexpr seconds kSettled(10);
constexpr seconds kStillOpen(60);

bool IsYoung(const std::string& film) {
  struct stat status {};
  return stat(film.c_str(), &status) == 0 && time(nullptr) - status.st_mtime < kSettled.count() &&
         status.st_mtime <= time(nullptr);
}

}  // namespace

seconds WaitForWriters(const std::string& film) {
  const orvo::UniqueFd file(open(film.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  // The kernel grants a read lease only if no process has the file open for writing. The lease ends
  // here.
  if (fcntl(file.Get(), F_SETLEASE, F_RDLCK) == 0) {
    fcntl(file.Get(), F_SETLEASE, F_UNLCK);
    return seconds(0);
  }
  if (errno == EAGAIN) {
    return kStillOpen;
  }
  return IsYoung(film) ? kSettled : seconds(0);
}

}  // namespace catalog
