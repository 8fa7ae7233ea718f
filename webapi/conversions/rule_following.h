// Finds the films for the owner's rules (convert/queue.h).
#pragma once

namespace webapi {

// Adds the films below the folders of rules to the queue if this machine cannot play them in time
// (choice/profiles.h): those that are there, and those that come or change. Looks at all of them
// again when the rules change or the machine knows more about its speed. A machine that has not
// been measured adds none. Works at a low priority until a signal ends it. Returns only if it
// cannot work: the exit status, with a reason on standard error.
int FollowRules();

}  // namespace webapi
