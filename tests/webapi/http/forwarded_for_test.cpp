// Whom the limits count behind a reverse proxy.
#include "webapi/http/forwarded_for.h"

#include <gtest/gtest.h>

namespace {

using webapi::ClientBehind;

constexpr char kProxies[] = "192.0.2.1 2001:db8::1 127.0.0.1";

TEST(ForwardedFor, CountsFromNamedProxiesOnly) {
  EXPECT_EQ(ClientBehind("192.0.2.1", "203.0.113.9", kProxies), "203.0.113.9");
  EXPECT_EQ(ClientBehind("198.51.100.7", "203.0.113.9", kProxies), "198.51.100.7");
  EXPECT_EQ(ClientBehind("192.0.2.1", "203.0.113.9", ""), "192.0.2.1");
}

TEST(ForwardedFor, NamesTheClientThatTheProxyHasSeen) {
  EXPECT_EQ(ClientBehind("192.0.2.1", "10.0.0.1, 203.0.113.9", kProxies), "203.0.113.9")
      << "the client wrote the first one";
}

TEST(ForwardedFor, PassesOverFurtherNamedProxies) {
  EXPECT_EQ(ClientBehind("127.0.0.1", "203.0.113.9,192.0.2.1", kProxies), "203.0.113.9");
  EXPECT_EQ(ClientBehind("127.0.0.1", "192.0.2.1", kProxies), "127.0.0.1");
}

TEST(ForwardedFor, ComparesAddressesAndNotTheirSpelling) {
  EXPECT_EQ(ClientBehind("2001:db8::1", "2001:DB8:0::9", "2001:0db8::0001"), "2001:db8::9");
}

TEST(ForwardedFor, IsThePeerForAnythingThatIsNoAddress) {
  for (const char* text : {"", "unknown", "203.0.113.9:80", "203.0.113.9,", ", ,", "a\r\nb"}) {
    EXPECT_EQ(ClientBehind("192.0.2.1", text, kProxies), "192.0.2.1") << text;
  }
}

}  // namespace
