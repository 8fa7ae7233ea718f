#include "mirevo/film_argument.h"

#include "mirevo/exit_codes.h"
#include "mirevo/output.h"

namespace mirevo {

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
