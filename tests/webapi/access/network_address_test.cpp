#include "webapi/access/network_address.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <string>

#include "platform/network.h"
#include "support/environment.h"

namespace {

std::string AuthorityFor(const std::string& host, const std::string& listening) {
  const test::Environment environment({{"HTTP_HOST", host}, {"MIREVO_LISTEN", listening}});
  return webapi::NetworkAuthority(webapi::Request());
}

TEST(NetworkAddress, ANameThatOtherMachinesUsedStays) {
  EXPECT_EQ(AuthorityFor("films.lan", ""), "films.lan");
  EXPECT_EQ(AuthorityFor("192.0.2.7:8096", "198.51.100.1:8096"), "192.0.2.7:8096");
}

TEST(NetworkAddress, AServiceOnLoopbackAloneHasNone) {
  for (const std::string host : {"localhost:8096", "127.0.0.1:8096", "[::1]:8096"}) {
    EXPECT_EQ(AuthorityFor(host, ""), "") << host;
  }
}

TEST(NetworkAddress, ALoopbackNameIsReplacedByTheListeningAddress) {
  EXPECT_EQ(AuthorityFor("localhost:8096", "192.0.2.7:8096"), "192.0.2.7:8096");
  EXPECT_EQ(AuthorityFor("[::1]:8096", "[2001:db8::7]:8096"), "[2001:db8::7]:8096");
}

TEST(NetworkAddress, EveryAddressMeansOneOfTheMachinesOwn) {
  const auto own = orvo::NetworkAddresses(AF_INET);
  EXPECT_EQ(AuthorityFor("127.0.0.1:8096", "0.0.0.0:8096"),
            own.empty() ? "" : own.front() + ":8096");
  const auto six = orvo::NetworkAddresses(AF_INET6);
  EXPECT_EQ(AuthorityFor("[::1]:8096", "[::]:8096"),
            six.empty() ? "" : "[" + six.front() + "]:8096");
}

TEST(NetworkAddress, LoopbackAndLinkLocalAddressesAreNotForOtherMachines) {
  for (const std::string& address : orvo::NetworkAddresses(AF_INET)) {
    EXPECT_NE(address.substr(0, 4), "127.");
  }
  for (const std::string& address : orvo::NetworkAddresses(AF_INET6)) {
    EXPECT_NE(address.substr(0, 4), "fe80");
    EXPECT_NE(address, "::1");
  }
}

}  // namespace
