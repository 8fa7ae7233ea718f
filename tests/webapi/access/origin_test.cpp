#include "webapi/access/origin.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "support/environment.h"

namespace {

using Headers = std::map<std::string, std::string>;

constexpr char kHosts[] = "localhost:8096 127.0.0.1:8096 [::1]:8096 films.lan tv.lan:443";

bool IsTaken(Headers variables) {
  variables.emplace("MIREVO_HOSTS", kHosts);
  variables.emplace("MIREVO_ORIGINS", "https://tv.example http://10.0.0.9:3000");
  variables.emplace("HTTP_HOST", "localhost:8096");
  const test::Environment environment(variables);
  return !webapi::RefuseStranger(webapi::Request());
}

TEST(Origin, AHostIsKnownByItsNameAndPort) {
  for (const std::string host : {"localhost:8096", "LocalHost:8096", "127.0.0.1:8096", "[::1]:8096",
                                 "films.lan", "films.lan:1", ""}) {
    EXPECT_TRUE(IsTaken({{"HTTP_HOST", host}})) << host;
  }
  for (const std::string host :
       {"evil.example", "evil.example:8096", "localhost", "localhost:80", "localhost.:8096",
        "films.lan.evil.example", "films.lan:1:2", "127.0.0.1.evil.example:8096", "10.0.0.1:8096",
        "[::1", "::1:8096", ":8096", " ", "*", "localhost:8096 "}) {
    EXPECT_FALSE(IsTaken({{"HTTP_HOST", host}})) << host;
  }
}

TEST(Origin, AChangeByGetNeedsAPageOrAProgramThatIsNoBrowser) {
  const std::string browser = "Mozilla/5.0 (X11; Linux x86_64)";
  const auto isTaken = [](const Headers& variables) {
    const test::Environment environment(variables);
    return !webapi::RefuseHiddenPage(webapi::Request());
  };
  EXPECT_FALSE(isTaken({{"REQUEST_METHOD", "GET"}, {"HTTP_USER_AGENT", browser}}));
  EXPECT_FALSE(isTaken({{"REQUEST_METHOD", "HEAD"}, {"HTTP_USER_AGENT", browser}}));
  EXPECT_TRUE(isTaken({{"REQUEST_METHOD", "POST"}, {"HTTP_USER_AGENT", browser}}));
  EXPECT_TRUE(isTaken({{"REQUEST_METHOD", "GET"}, {"HTTP_USER_AGENT", "curl/8"}}));
  EXPECT_TRUE(isTaken({{"REQUEST_METHOD", "GET"}}));
  for (const char* header : {"HTTP_REFERER", "HTTP_ORIGIN", "HTTP_SEC_FETCH_SITE"}) {
    EXPECT_TRUE(isTaken(
        {{"REQUEST_METHOD", "GET"}, {"HTTP_USER_AGENT", browser}, {header, "same-origin"}}));
  }
}

TEST(Origin, TheUsualPortMayBeOmitted) {
  EXPECT_FALSE(IsTaken({{"HTTP_HOST", "tv.lan"}}));
  EXPECT_TRUE(IsTaken({{"HTTP_HOST", "tv.lan"}, {"HTTPS", "on"}}));
  EXPECT_TRUE(IsTaken({{"HTTP_HOST", "tv.lan:443"}, {"HTTPS", "on"}}));
}

TEST(Origin, AStarMatchesEveryAddressAndNoName) {
  for (const std::string host : {"10.0.0.1:8096", "[2001:db8::7]:8096", "127.0.0.1:8096"}) {
    EXPECT_TRUE(IsTaken({{"MIREVO_HOSTS", "*:8096"}, {"HTTP_HOST", host}})) << host;
  }
  for (const std::string host : {"10.0.0.1", "10.0.0.1:80", "10.0.0.1.evil.example:8096", "*:8096",
                                 "1:8096", "[evil.example]:8096", "[]:8096"}) {
    EXPECT_FALSE(IsTaken({{"MIREVO_HOSTS", "*:8096"}, {"HTTP_HOST", host}})) << host;
  }
}

TEST(Origin, WithoutAListForeignNamesAreRefused) {
  const test::Environment environment(Headers{{"HTTP_HOST", "evil.example"}});
  EXPECT_TRUE(webapi::RefuseStranger(webapi::Request()));
  setenv("HTTP_HOST", "192.0.2.7:5000", 1);
  EXPECT_FALSE(webapi::RefuseStranger(webapi::Request()));
  setenv("HTTP_HOST", "localhost:5000", 1);
  EXPECT_FALSE(webapi::RefuseStranger(webapi::Request()));
}

struct Case {
  Headers headers;
  bool isTaken;
};

TEST(Origin, APageIsAcceptedIfItIsOursOrOnTheList) {
  const std::string origin = "HTTP_ORIGIN";
  const std::string site = "HTTP_SEC_FETCH_SITE";
  const std::string page = "HTTP_REFERER";
  const Case cases[] = {
      {{}, true},
      {{{origin, "http://localhost:8096"}}, true},
      {{{origin, "https://localhost:8096"}}, false},
      {{{origin, "https://localhost:8096"}, {"HTTPS", "on"}}, true},
      {{{origin, "http://localhost:8096"}, {"HTTPS", "on"}}, false},
      {{{origin, "http://localhost:3000"}}, false},
      {{{origin, "http://127.0.0.1:8096"}}, false},
      {{{origin, "https://tv.example"}}, true},
      {{{origin, "https://tv.example"}, {site, "cross-site"}}, true},
      {{{origin, "http://tv.example"}}, false},
      {{{origin, "https://tv.example.evil.example"}}, false},
      {{{origin, "https://tv.example http://10.0.0.9:3000"}}, false},
      {{{origin, "https://evil.example"}, {site, "same-origin"}}, false},
      {{{origin, "null"}}, false},
      {{{origin, "null"}, {site, "cross-site"}}, false},
      {{{origin, "null"}, {site, "same-origin"}}, true},
      {{{site, "none"}}, true},
      {{{site, "same-origin"}}, true},
      {{{site, "cross-site"}}, false},
      {{{site, "same-site"}}, false},
      {{{site, "anything"}}, false},
      {{{site, "cross-site"}, {page, "https://tv.example/watch?x=http://localhost:8096"}}, true},
      {{{site, "cross-site"}, {page, "https://evil.example/https://tv.example"}}, false},
      {{{page, "https://evil.example/"}}, false},
      {{{page, "http://localhost:8096/"}}, true},
      {{{page, "nonsense"}}, false},
  };
  for (const Case& row : cases) {
    std::string text;
    for (const auto& [name, value] : row.headers) {
      text += name + ": " + value + "; ";
    }
    EXPECT_EQ(IsTaken(row.headers), row.isTaken) << text;
  }
}

}  // namespace
