// Signals as events of a loop that waits with poll, not as calls of a handler.
#pragma once

#include <initializer_list>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// Blocks the signals for this thread, and for good: programs that it starts get them as usual.
class ORVO_API SignalEvents {
 public:
  explicit SignalEvents(std::initializer_list<int> signals);

  // Not open, with errno set, if the process may open no more descriptors.
  bool IsOpen() const { return descriptor_.IsOpen(); }
  // Readable while a signal has come that was not taken.
  int Descriptor() const { return descriptor_.Get(); }
  // The next signal that has come; 0 for none. Does not wait.
  int Take();

 private:
  UniqueFd descriptor_;
};

}  // namespace orvo
