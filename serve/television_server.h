// The program that shows the library to the televisions of the local network (dlna/).
#pragma once

#include <string>
#include <vector>

#include "serve/web_server.h"

namespace serve {

// Its command line. Empty if no owner has let televisions in, or if they could not reach the
// service, which it tells on standard error then. `interfaces`: the network interfaces to use,
// empty for all with addresses of a local network.
std::vector<std::string> TelevisionCommand(const WebServer& server,
                                           const std::vector<std::string>& interfaces);

}  // namespace serve
