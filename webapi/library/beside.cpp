#include "webapi/library/beside.h"

#include "platform/plat.h"
#include "webapi/library/media_library.h"

namespace webapi {
namespace {

// "/films/" of "/films/a.mkv".
std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1);
}

}  // namespace

orvo::MediaFile OpenBeside(const std::string& film, const std::string& path) {
  orvo::MediaFile file = OpenVisible(path);
  const std::string folder = FolderOf(film);
  if (!file.IsOpen() && FolderOf(path) == folder) {
    libmrv::DoActionAsRoot("OpenSubtitle", [&] {
      file = orvo::MediaFile::OpenBeneath(folder.substr(0, folder.size() - 1), path);
      return file.IsOpen();
    });
  }
  return file;
}

}  // namespace webapi
