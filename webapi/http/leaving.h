// What becomes of a request whose client leaves.
//
// The web server sends SIGTERM then. It also does so when it has the whole answer, or the name of
// the file that it sends itself.
#pragma once

namespace webapi {

// From now on the request goes on without its client.
void OutliveClient();

// Has the client of a request that goes on without it left, or has the web server that would take
// the answer ended?
bool HasClientLeft();

// From now on the request ends with its client, also if that has left before.
void EndWithClient();

}  // namespace webapi
