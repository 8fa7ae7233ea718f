// The service X_MS_MediaReceiverRegistrar:1, which some players ask whether they may browse.
// Everybody on the local network may.
#pragma once

#include <libgupnp/gupnp.h>

namespace dlna {

inline constexpr char kRegistrar[] = "urn:microsoft.com:service:X_MS_MediaReceiverRegistrar:1";

// Answers the actions of the service as long as it exists.
void AnswerRegistrar(GUPnPServiceInfo* service);

}  // namespace dlna
