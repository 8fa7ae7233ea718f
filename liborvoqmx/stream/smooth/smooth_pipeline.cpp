#include "stream/smooth/smooth_pipeline.h"

#include <csignal>

#include "platform/process.h"
#include "stream/pipeline/pipeline.h"

namespace LibOrvoQMX {

volatile sig_atomic_t gSSSignal = 0;
orvo::Process gPidSSFFMPEG;

void ResetSmoothPipeline() {
  gPidSSFFMPEG = orvo::Process();
  gSSSignal = 0;
}

void RunSmoothPipeline(const std::function<void()>& become,
                       const std::function<bool()>& isAbandoned) {
  Pipeline pipeline(gPidSSFFMPEG, {});
  if (gSSSignal == 0 && pipeline.Start(become)) {
    pipeline.Watch(gSSSignal, isAbandoned);
  }
}

void StopSmoothPipeline() {
  Pipeline(gPidSSFFMPEG, {}).End();
}

void OnSmoothStopSignal(int /*signal*/) {
  gSSSignal = 1;
}

}  // namespace LibOrvoQMX
