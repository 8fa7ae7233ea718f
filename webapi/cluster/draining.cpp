#include "webapi/cluster/draining.h"

#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/io.h"
#include "platform/plat.h"

namespace webapi {
namespace {

// An empty file. Only its presence counts.
std::string Mark() {
  return orvo::SystemPath("/run/mirevo/draining");
}

}  // namespace

bool IsDraining() {
  return access(Mark().c_str(), F_OK) == 0;
}

bool SetDraining(bool isDraining) {
  return isDraining ? orvo::TouchFile(Mark()) : unlink(Mark().c_str()) == 0 || errno == ENOENT;
}

}  // namespace webapi
