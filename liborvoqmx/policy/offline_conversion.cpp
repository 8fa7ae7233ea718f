#include "policy/offline_conversion.h"

#include <csignal>

#include "platform/plat.h"
#include "platform/process.h"
#include "policy/registry_watch.h"
#include "policy/trans_loading.h"
#include "util/system_files.h"

namespace LibMirevo {
namespace {

constexpr int kPatienceSeconds = 30;

}  // namespace

void AskOfflineConversionToGiveWay() {
  if (!TransLoading().IsOffineConverting()) {
    return;
  }
  const pid_t service = PlatReadPidFile(orvo::SystemPath(LibOrvoQMX::kOfflineConversionPidFile));
  if (service > 0) {
    orvo::SendSignal(service, SIGUSR1);
  }
  AskRegistryUntil([](const TransLoading& registry) { return !registry.IsOffineConverting(); },
                   kPatienceSeconds);
}

}  // namespace LibMirevo
