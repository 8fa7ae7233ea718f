#include "serve/measurement.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include "platform/idle.h"
#include "platform/log.h"
#include "platform/process_launch.h"
#include "serve/machine_setup.h"
#include "webapi/choice/machine_speed.h"
#include "webapi/choice/speed_measurement.h"

namespace serve {
namespace {

// The proofs of an earlier start hold while the machine stays as it is.
void Detect() {
  using orvo::transcoder::EngineRecord;
  const EngineRecord known = EngineRecord::Load();
  const EngineRecord engines = known.IsKnown() ? known : ProveEngines();
  if (!DetectMachine(engines)) {
    ORVO_LOG("What this machine is cannot be written: %s", strerror(errno));
  }
}

}  // namespace

Measurement::Measurement(bool isWanted) {
  if (!isWanted) {
    return;
  }
  orvo::LaunchOptions options;
  options.parentDeath.signal = SIGKILL;
  process_ = orvo::Fork(
      [] {
        orvo::BecomeIdle();
        Detect();
        return webapi::MachineSpeed::Load().IsKnown() || webapi::MeasureMachine() ? 0 : 1;
      },
      options);
}

}  // namespace serve
