// Processes with a number of one's choice.
#pragma once

#include <sys/types.h>

namespace test {

// Starts a process with this number, which must be free. It does nothing until it is killed.
// Returns -1 where the system does not let one choose.
pid_t ForkAs(pid_t number);

}  // namespace test
