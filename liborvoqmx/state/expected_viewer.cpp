#include "state/expected_viewer.h"

#include <unistd.h>

#include <utility>

#include "platform/log.h"

namespace LibOrvoQMX {
namespace {

// A player asks for its first piece within a second or two of the opening.
constexpr std::chrono::seconds kPatience(10);

}  // namespace

ExpectedViewer::ExpectedViewer(StreamDirectory directory)
    : directory_(std::move(directory)),
      announced_(std::chrono::steady_clock::now()),
      lastRequest_(directory_.LastAsked()) {}

bool ExpectedViewer::HasStayedAway() const {
  if (!IsLate() || HasCome()) {
    return false;
  }
  const StateFile seekTime = directory_.SeekTime();
  const StreamLock lock = seekTime.Lock();
  // A request may have come during the wait for the lock. A newer monitor has a place of its own.
  if (HasCome() || directory_.Monitor() != getpid()) {
    return false;
  }
  seekTime.Clear();
  ORVO_LOG("Nobody asked within %d seconds: the transcoder of %s ends.",
           static_cast<int>(kPatience.count()), directory_.Path().c_str());
  return true;
}

bool ExpectedViewer::IsLate() const {
  return std::chrono::steady_clock::now() - announced_ >= kPatience;
}

bool ExpectedViewer::HasCome() const {
  const auto last = directory_.LastAsked();
  return last && (!lastRequest_ || last->tv_sec != lastRequest_->tv_sec ||
                  last->tv_nsec != lastRequest_->tv_nsec);
}

}  // namespace LibOrvoQMX
