#include "transcoder/ready_parent.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "contract/ready_ffmpeg.h"
#include "platform/log.h"
#include "platform/process_launch.h"
#include "transcoder/child_stream.h"
#include "transcoder/launch.h"
#include "transcoder/places.h"

namespace orvo::transcoder {
namespace {

constexpr char kLibrary[] = "/lib/mirevo-ready-ffmpeg.so";  // beside the folder of this program
constexpr char kPreload[] = "LD_PRELOAD=";
constexpr size_t kRoom =
    8192;  // for the command lines of the runs, which a list of processes shows

std::string LibraryPath() {
  std::array<char, PATH_MAX> path{};
  const ssize_t length = readlink("/proc/self/exe", path.data(), path.size() - 1);
  const std::string_view program(path.data(), length > 0 ? static_cast<size_t>(length) : 0);
  const std::string_view folder = program.substr(0, program.rfind('/'));
  return std::string(folder.substr(0, folder.rfind('/'))) + kLibrary;
}

// All symbols are bound at once, so that no run binds them again.
std::vector<std::string> Environment(const std::string& library) {
  std::vector<std::string> variables = {kPreload + library, "LD_BIND_NOW=1"};
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    if (!std::string_view(*variable).starts_with(kPreload)) {
      variables.emplace_back(*variable);
    }
  }
  return variables;
}

}  // namespace

int BecomeReady() {
  const std::string library = LibraryPath();
  int error = access(library.c_str(), R_OK) == 0 ? 0 : errno;
  if (error == 0) {
    const Program program{
        kExecutable, {kExecutable, kReadyOption, std::string(kRoom, ' ')}, Environment(library)};
    error = orvo::Become(program);
  }
  ORVO_LOG("FFmpeg is not kept ready: %s", strerror(error));
  return kExitFailure;
}

}  // namespace orvo::transcoder
