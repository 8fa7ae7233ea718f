#include "stream/pipeline/pipeline.h"

#include <utility>

#include "platform/process_launch.h"
#include "policy/trans_loading.h"
#include "state/stream_watch.h"

namespace LibOrvoQMX {
namespace {

constexpr int kIdleCheckMilliseconds = 2000;

}  // namespace

orvo::Process StartUnderMonitor(const std::function<void()>& become) {
  orvo::LaunchOptions options;
  options.parentDeath.signal = SIGKILL;
  return orvo::Fork(
      [&] {
        become();
        return 1;
      },
      options);
}

Pipeline::Pipeline(orvo::Process& transcoder, PipelineRules rules)
    : transcoder_(transcoder), rules_(std::move(rules)) {}

bool Pipeline::Start(const std::function<void()>& become) {
  transcoder_ = StartUnderMonitor(become);
  return static_cast<bool>(transcoder_);
}

bool Pipeline::Watch(const volatile sig_atomic_t& stop, const std::function<bool()>& isAbandoned) {
  const SignalGate gate;
  while (!transcoder_.HasEndedWithin(0)) {
    if ((isAbandoned && isAbandoned()) || stop != 0) {
      return false;
    }
    gate.Wait(transcoder_.Descriptor(), kIdleCheckMilliseconds);
  }
  const pid_t pid = transcoder_.Pid();
  Reap();
  Unregister(pid);
  return true;
}

void Pipeline::End() {
  if (!transcoder_) {
    return;
  }
  const pid_t pid = transcoder_.Pid();
  transcoder_.AskToEnd(SIGINT);
  if (rules_.unregistersFirst) {
    Unregister(pid);
  }
  if (!transcoder_.HasEndedWithin(rules_.graceMilliseconds)) {
    if (rules_.onKill) {
      rules_.onKill(pid);
    }
    transcoder_.Signal(SIGKILL);
  }
  Reap();
  if (!rules_.unregistersFirst) {
    Unregister(pid);
  }
}

void Pipeline::Unregister(pid_t pid) const {
  if (rules_.isRegistered) {
    LibMirevo::TransLoading().RemoveTransPIDLock(pid);
  }
}

void Pipeline::Reap() {
  status_ = transcoder_.Wait();
  transcoder_ = orvo::Process();
}

}  // namespace LibOrvoQMX
