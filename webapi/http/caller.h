// The caller of a request, as plain data. access/identity.h fills it in and checks it.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace webapi {

struct Caller {
  bool isLoginRequired = false;  // false if there are no accounts; everyone is the owner then
  std::string account;           // "" for an unknown caller, and if there are no accounts
  // Whose streams, downloads and conversions are counted together: an account or, without one, an
  // address.
  std::string client;
  std::string era;  // the account's era
  bool isOwner = false;
  bool isHere = false;             // on this machine, and not behind a proxy
  std::vector<std::string> roots;  // the account's media roots; empty for all
  std::string linkedStream;        // the stream that the link opens; "" for a session
  Json::Value linkedTicket;        // the ticket that the link was checked against
};

}  // namespace webapi
