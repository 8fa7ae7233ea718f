// Talking to the service that runs on this machine.
#pragma once

#include <json/value.h>

#include <map>
#include <string>

namespace mirevo {

struct Reply {
  int exitCode = 0;     // of exit_codes.h; 0 for a success
  std::string message;  // what to tell the user of a failure
  Json::Value data;     // of a success
};

// Calls a method of the web API ("Streaming", "open") of the running service.
Reply CallService(const std::string& api, const std::string& method,
                  const std::map<std::string, std::string>& parameters);

}  // namespace mirevo
