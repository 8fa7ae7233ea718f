// The name of this service for other machines.
//
// The configuration of the web server sets MIREVO_LISTEN in the environment: the addresses on which
// the service listens with their ports ("0.0.0.0:8096 [2001:db8::7]:8096"), without loopback.
#pragma once

#include <string>

#include "webapi/http/request.h"

namespace webapi {

// The host and port ("192.0.2.7:8096") at which other machines reach the service: those of the
// request, unless it came by a loopback name. "" if only this machine reaches the service.
std::string NetworkAuthority(const Request& request);

}  // namespace webapi
