// Folders and films in DIDL-Lite, the form in which UPnP describes them.
#pragma once

#include <json/value.h>

#include <string>

namespace dlna {

// Describes these objects (webapi/television/browse.h). `origin`: the scheme, host and port at
// which the asking television reaches the service. `filter`: the names of the properties that it
// wants, "*" for all.
std::string DidlOf(const Json::Value& objects, const std::string& origin,
                   const std::string& filter);

}  // namespace dlna
