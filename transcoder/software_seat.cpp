#include "transcoder/software_seat.h"

#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/log.h"
#include "platform/plat.h"

namespace orvo::transcoder {
namespace {

constexpr char kProgram[] = "orvo-seat";
constexpr int kPatience = 10000;  // milliseconds

}  // namespace

// The register is JSON and belongs to the library. A program of its own does this, so that the
// transcoder starts without loading either.
bool TakeSoftwareSeatOf(pid_t pid) {
  std::error_code failure;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", failure);
  const std::string program = (self.parent_path() / kProgram).string();
  const int status = RunWithin(program, {program, std::to_string(pid)}, kPatience);
  if (status != 0) {
    ORVO_LOG("no software transcoder may run beside those that run (%d)", status);
  }
  return status == 0;
}

bool TakeSoftwareSeat() {
  return TakeSoftwareSeatOf(getpid());
}

}  // namespace orvo::transcoder
