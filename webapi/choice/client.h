// What a client says about itself.
#pragma once

#include <string>
#include <vector>

#include "webapi/http/request.h"

namespace webapi {

struct Client {
  std::string userAgent;
  std::string device;               // a known name has priority over the User-Agent
  std::vector<std::string> codecs;  // RFC 6381 names, full ("hvc1.2.4.L120.B0") or bare ("hvc1")
  bool showsHighRange = false;      // its screen shows PQ and HLG
};

// The client that made the request, by its User-Agent and the parameters "device", "codecs" and
// "dynamic_range".
Client ClientOf(const Request& request);

// Does the client name this codec (FFmpeg's name)?
bool NamesCodec(const Client& client, const std::string& codec);

// Does the client say that it decodes ten bits of this codec? A client that shows a high range and
// names the codec says so too.
bool NamesTenBits(const Client& client, const std::string& codec);

}  // namespace webapi
