// orvo-seat PID: makes the entry of a running transcoder one of a software transcoder. Exits with 0
// if that is done or not necessary, with 1 if there is no place; the entry is gone then.
#include <cstdlib>

#include "policy/trans_loading.h"
#include "util/number.h"

namespace {

bool HasHardwareEntry(const LibMirevo::TransLoading& registry, int pid) {
  for (const Json::Value& entry : registry.GetEntries()) {
    if (entry["PID"] == pid && entry["hardware_transcode"] == true) {
      return true;
    }
  }
  return false;
}

}  // namespace

int main(int argc, char* argv[]) {
  const int pid = argc == 2 ? LibOrvoQMX::LeadingInt(argv[1]) : 0;
  LibMirevo::TransLoading registry;
  if (pid <= 0 || !HasHardwareEntry(registry, pid)) {
    return EXIT_SUCCESS;
  }
  const bool isMoved = registry.RemoveTransPIDLock(pid) && registry.TransEnable(false) &&
                       registry.SaveTransPID(pid, false, false);
  return isMoved ? EXIT_SUCCESS : EXIT_FAILURE;
}
