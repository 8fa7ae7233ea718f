#include "serve/measurement.h"

#include <csignal>

#include "platform/idle.h"
#include "platform/process_launch.h"
#include "webapi/choice/machine_speed.h"
#include "webapi/choice/speed_measurement.h"

namespace serve {

Measurement::Measurement(bool isWanted) {
  if (!isWanted || webapi::MachineSpeed::Load().IsKnown()) {
    return;
  }
  orvo::LaunchOptions options;
  options.parentDeath.signal = SIGKILL;
  process_ = orvo::Fork(
      [] {
        orvo::BecomeIdle();
        return webapi::MeasureMachine() ? 0 : 1;
      },
      options);
}

}  // namespace serve
