#include "platform/run_as.h"

#include <unistd.h>

#include "platform/log.h"
#include "platform/plat.h"

namespace orvo {
namespace {

bool HasRoot() {
  uid_t real = 0;
  uid_t effective = 0;
  uid_t saved = 0;
  return getresuid(&real, &effective, &saved) == 0 && (real == 0 || effective == 0 || saved == 0);
}

bool SetEffectiveIds(uid_t user, gid_t group) {
  // Groups can only be changed while the effective user is root, so root comes first and the user
  // last.
  return (geteuid() == 0 || seteuid(0) == 0) && setegid(group) == 0 && seteuid(user) == 0;
}

}  // namespace

RunAs::RunAs(uid_t user, gid_t group, const char* file, int line)
    : user_(user),
      group_(group),
      previousUser_(geteuid()),
      previousGroup_(getegid()),
      file_(file),
      line_(line) {
  if ((user == previousUser_ && group == previousGroup_) || !HasRoot()) {
    entered_ = true;
    return;
  }
  switched_ = SetEffectiveIds(user, group);
  entered_ = switched_;
  if (!entered_) {
    Log(LOG_AUTH | LOG_ERR, file, line, "ERROR: %s(%d, %d)", "IF_RUN_AS", static_cast<int>(user),
        static_cast<int>(group));
    // A partial switch must not remain either.
    SetEffectiveIds(previousUser_, previousGroup_);
  }
}

RunAs::~RunAs() {
  if (switched_ && !SetEffectiveIds(previousUser_, previousGroup_)) {
    Log(LOG_AUTH | LOG_CRIT, file_, line_, "ERROR: ~%s(%d, %d)", "IF_RUN_AS",
        static_cast<int>(user_), static_cast<int>(group_));
  }
}

}  // namespace orvo

namespace libmrv {

bool DoActionAsRoot(const std::string& name, const std::function<bool()>& action) {
  IF_RUN_AS(0, 0) {
    return action();
  }
  ORVO_LOG("Failed to run [%s] as root", name.c_str());
  return false;
}

}  // namespace libmrv
