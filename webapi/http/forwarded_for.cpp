#include "webapi/http/forwarded_for.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <set>
#include <sstream>

namespace webapi {
namespace {

// The usual spelling of a numeric address; "" for any other text.
std::string Normal(const std::string& address) {
  in6_addr bytes{};
  std::array<char, INET6_ADDRSTRLEN> text{};
  for (const int family : {AF_INET, AF_INET6}) {
    if (inet_pton(family, address.c_str(), &bytes) == 1 &&
        inet_ntop(family, &bytes, text.data(), text.size()) != nullptr) {
      return text.data();
    }
  }
  return "";
}

std::set<std::string> NormalAddresses(const std::string& list) {
  std::set<std::string> addresses;
  std::istringstream words(list);
  for (std::string word; words >> word;) {
    addresses.insert(Normal(word));
  }
  addresses.erase("");
  return addresses;
}

std::string WithoutBlanks(std::string text) {
  text.erase(std::remove_if(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\t'; }),
             text.end());
  return text;
}

}  // namespace

std::string ClientBehind(const std::string& peer, const std::string& forwarded,
                         const std::string& proxies) {
  const std::set<std::string> known = NormalAddresses(proxies);
  std::string client = Normal(peer);
  std::string rest = forwarded;
  while (known.count(client) != 0 && !rest.empty()) {
    const size_t comma = rest.rfind(',');
    const size_t last = comma == std::string::npos ? 0 : comma + 1;
    const std::string next = Normal(WithoutBlanks(rest.substr(last)));
    if (next.empty()) {
      return peer;
    }
    client = next;
    rest.resize(comma == std::string::npos ? 0 : comma);
  }
  return known.count(client) != 0 || client.empty() ? peer : client;
}

}  // namespace webapi
