// Bounds the requests that are under way for each kind of work, before their programs start.
//
// The request program has the same queues, but each request in them has a process, and in a crowd
// the processes before the queue keep the processors so busy that even a refusal comes late. The
// doorkeeper therefore counts the processes of each kind, and answers a request beyond the end of
// the queue in place of the program.
#pragma once

#include <sys/types.h>

#include <atomic>

namespace serve {

class RequestPlaces {
 public:
  RequestPlaces();

  // In the process that is about to become the request program: takes a place for the request in
  // these CGI variables. Returns false if all places of its kind are taken. Async-signal-safe.
  bool Take(char* const* environment);

  // In the web server: frees the place of a process that has ended, if it had one.
  void Leave(pid_t process);

 private:
  // Shared with the processes of requests. Each place holds the number of its process, or 0.
  std::atomic<pid_t>* places_ = nullptr;
};

// Writes the answer for a request without a place. Async-signal-safe.
void RefuseRequest(int output);

}  // namespace serve
