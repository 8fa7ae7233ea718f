// Tells the service manager again and again that the service works, if the manager wants to know.
#pragma once

#include <chrono>

#include "platform/unique_fd.h"
#include "serve/web_server.h"

namespace serve {

// Asks the web server twice in each period of the manager's watchdog and passes its answer on. If
// the web server or this process hangs, the manager hears nothing and starts the service again. An
// encrypted server is not asked, because it would log each question.
class Heartbeat {
 public:
  // `server` must outlive this object.
  explicit Heartbeat(const WebServer& server);

  // Asks, and passes an answer on, if it is time.
  void Update();
  // What to wait for before the next Update(): the descriptor (-1 for none), and the time in
  // milliseconds (-1 for no limit).
  int Descriptor() const { return question_.Get(); }
  int Patience() const;

 private:
  using Clock = std::chrono::steady_clock;

  void Ask();

  const WebServer& server_;
  std::chrono::milliseconds interval_;  // 0 if no manager wants to know
  Clock::time_point next_ = Clock::now();
  orvo::UniqueFd question_;  // open while an answer is missing
};

}  // namespace serve
