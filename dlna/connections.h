// The service ConnectionManager:1: what the server can send. It makes no connections by itself;
// televisions fetch what they want.
#pragma once

#include <libgupnp/gupnp.h>

namespace dlna {

inline constexpr char kConnectionManager[] = "urn:schemas-upnp-org:service:ConnectionManager:1";

// Answers the actions of the service as long as it exists.
void AnswerConnections(GUPnPServiceInfo* service);

}  // namespace dlna
