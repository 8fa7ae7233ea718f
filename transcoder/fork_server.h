// A process that forks for each piece of work that it is asked for.
//
// A connection is one piece (platform/local_message.h). The client sends a text with files. The
// answers are one number each: kForkBegun, and at the end what Worker::Wait() returns. The new
// process is killed when the client shuts its side of the connection down or ends, which is
// answered at once. It ends with the server, too.
#pragma once

#include <functional>
#include <memory>

#include "platform/local_message.h"
#include "platform/process_launch.h"
#include "transcoder/worker.h"

namespace orvo::transcoder {

inline constexpr int kForkBegun = -1;

// What a client has asked for.
class ForkWork {
 public:
  ForkWork() = default;
  virtual ~ForkWork() = default;
  ForkWork(const ForkWork&) = delete;
  ForkWork& operator=(const ForkWork&) = delete;

  // How the new process is made; its death with the server is added.
  virtual LaunchOptions Options() = 0;

  // Runs in the new process. Returns its exit code.
  virtual int Do() = 0;
};

// Null refuses: the client gets no answer then.
using ForkWorkReader = std::function<std::unique_ptr<ForkWork>(LocalMessage message)>;

// Serves until the process is killed. The work exists until its process has begun.
[[noreturn]] void ServeForks(UniqueFd listener, const ForkWorkReader& read);

}  // namespace orvo::transcoder
