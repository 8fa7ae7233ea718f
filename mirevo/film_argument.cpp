#include "mirevo/film_argument.h"

#include <climits>
#include <cstdlib>

#include "mirevo/exit_codes.h"
#include "mirevo/output.h"

namespace mirevo {

std::string RealPath(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

int NoSuchPath(const std::string& path) {
  Complain(path + ": there is no such file or folder");
  return kNoInput;
}

int LoadFilm(const std::string& path, LibOrvoQMX::VideoMetaData& film) {
  const std::string resolved = RealPath(path);
  if (resolved.empty()) {
    return NoSuchPath(path);
  }
  if (!film.LoadFile(resolved)) {
    Complain(path + ": this file is not a film that can be played");
    return kFailed;
  }
  return kOk;
}

}  // namespace mirevo
