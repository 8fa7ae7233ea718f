// The settings of the service, for its owners. Every change is one step: of two owners who change
// at the same time none loses what the other did.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Media folders, accounts, hardware, limits and the cache as they are.
Answer DescribeSettings(const Request& request);

// Each of these makes one change and answers like DescribeSettings.
Answer AddMediaFolder(const Request& request);      // "path"
Answer RemoveMediaFolder(const Request& request);   // "path"
Answer AddAccount(const Request& request);          // "account", "passwd", "owner", "roots"
Answer RemoveAccount(const Request& request);       // "account"; the last owner stays
Answer SetAccountPassword(const Request& request);  // "account", "passwd"
Answer SetAccountRoots(const Request& request);     // "account", "roots": a JSON list of paths
Answer SetHardware(const Request& request);         // "enabled"
Answer SetLimit(const Request& request);            // "name", "value"
Answer ClearCache(const Request& request);

}  // namespace webapi
