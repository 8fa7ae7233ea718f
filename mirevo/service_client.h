// Calls the service that runs on this machine.
#pragma once

#include <json/value.h>

#include <map>
#include <string>

namespace mirevo {

struct Reply {
  int exitCode = 0;     // one of exit_codes.h; 0 after a success
  std::string message;  // for the user, after a failure
  Json::Value data;     // the service's data, after a success
};

// Calls a method of the web API ("Streaming", "open") of the running service.
Reply CallService(const std::string& api, const std::string& method,
                  const std::map<std::string, std::string>& parameters);

}  // namespace mirevo
