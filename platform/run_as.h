// A scope in which the process runs with other effective ids.
#pragma once

#include <sys/types.h>

#include "platform/export.h"

namespace orvo {

// Switches the effective user and group for its life. A process that has root among its real,
// effective or saved ids may switch; one that has not keeps its ids, and that is no failure.
// Failing to switch or to switch back is logged with the authentication facility, under `file` and
// `line`.
class ORVO_API RunAs {
 public:
  RunAs(uid_t user, gid_t group, const char* file, int line);
  ~RunAs();
  RunAs(const RunAs&) = delete;
  RunAs& operator=(const RunAs&) = delete;

  explicit operator bool() const { return entered_; }

 private:
  uid_t user_;
  gid_t group_;
  uid_t previousUser_;
  gid_t previousGroup_;
  const char* file_;
  int line_;
  bool switched_ = false;
  bool entered_ = false;
};

}  // namespace orvo

// The statement that follows runs with these effective ids, or not at all.
#define IF_RUN_AS(user, group) \
  if (const orvo::RunAs ifRunAsScope((user), (group), __FILE__, __LINE__); ifRunAsScope)
