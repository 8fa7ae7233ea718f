// Who makes a request, as plain data. access/identity.h finds it out and judges it.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace webapi {

struct Caller {
  bool isLoginRequired = false;  // false where there are no accounts: everybody is the owner then
  std::string account;           // "" for nobody, and where there are no accounts
  std::string era;               // of the account
  bool isOwner = false;
  std::vector<std::string> roots;  // the account's media roots; empty for all
  std::string linkedStream;        // the only stream that a link opens; "" for a session
  Json::Value linkedTicket;        // the content of its ticket, which the link was compared with
};

}  // namespace webapi
