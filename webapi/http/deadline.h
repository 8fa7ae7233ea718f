// The time that a request has until its answer begins.
//
// Each wait of a request has its own limit, and the request answers with an error when it is over.
// This limit is longer than all of them. It ends a request that hangs all the same, on a disk that
// does not answer, for example: the process gets SIGALRM, and whatever works for it ends with it.
#pragma once

namespace webapi {

// Starts the time, in seconds.
void SetDeadline(unsigned seconds);

// The answer begins: from now on, the client and the web server's limits for slow clients decide
// how long the request takes.
void RemoveDeadline();

}  // namespace webapi
