#include "webapi/http/request.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/environment.h"
#include "support/processes.h"

namespace {

using Variables = std::map<std::string, std::string>;
using webapi::Request;

// What is read from this environment, with this text on standard input.
std::optional<Request> ReadFrom(const Variables& variables, const std::string& body = "") {
  const test::Environment environment(variables);
  test::Pipe input;
  input.Write(body);
  input.CloseWrite();
  const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  dup2(input.ReadEnd(), STDIN_FILENO);
  std::string error;
  auto request = Request::Read(error);
  dup2(kept, STDIN_FILENO);
  close(kept);
  EXPECT_EQ(request.has_value(), error.empty());
  return request;
}

std::optional<Request> ReadForm(const std::string& body, const Variables& more = {}) {
  Variables variables = more;
  variables.emplace("REQUEST_METHOD", "POST");
  variables.emplace("CONTENT_TYPE", "application/x-www-form-urlencoded; charset=utf-8");
  variables.emplace("CONTENT_LENGTH", std::to_string(body.size()));
  return ReadFrom(variables, body);
}

TEST(Form, AddsItsParametersToThoseOfTheAddress) {
  const auto request = ReadForm("b=2&c=3", {{"QUERY_STRING", "a=1&b=1"}});
  ASSERT_TRUE(request);
  EXPECT_EQ(request->Text("a") + request->Text("b") + request->Text("c"), "113");
  EXPECT_EQ(request->NamesInAddress(), (std::set<std::string>{"a", "b"}));
}

TEST(Form, IsReadFromPostsOnly) {
  const auto request = ReadForm("b=2", {{"REQUEST_METHOD", "GET"}});
  ASSERT_TRUE(request);
  EXPECT_FALSE(request->Has("b"));
}

TEST(Form, IsRefusedWithoutItsTypeAndItsLength) {
  EXPECT_TRUE(ReadForm("a=1"));
  EXPECT_FALSE(ReadForm("a=1", {{"CONTENT_TYPE", "text/plain"}}));
  for (const char* length : {"", "-1", "3x", "4", "65537", "99999999999999999999"}) {
    EXPECT_FALSE(ReadForm("a=1", {{"CONTENT_LENGTH", length}})) << length;
  }
  EXPECT_FALSE(ReadForm("a=%zz"));
}

TEST(Form, MayHave64KilobytesAndNoMore) {
  const auto form = [](size_t size) { return "a=" + std::string(size - 2, 'x'); };
  const auto largest = ReadForm(form(65536));
  ASSERT_TRUE(largest);
  EXPECT_EQ(largest->Text("a").size(), 65534U);
  EXPECT_FALSE(ReadForm(form(65536), {{"CONTENT_LENGTH", "65537"}}));
}

TEST(Query, ThatIsBrokenIsRefused) {
  for (const char* query : {"a=%", "a=%4", "a=%4x", "%zz=1", "a=%00"}) {
    EXPECT_FALSE(ReadFrom({{"QUERY_STRING", query}})) << query;
  }
}

TEST(Query, MayComeFromAnAttributeOfXml) {
  Request request;
  ASSERT_TRUE(request.AddParameters("a=1&amp;b=2&&amp;&c&=d"));
  EXPECT_EQ(request.Text("b"), "2");
  EXPECT_TRUE(request.Has("c"));
  EXPECT_EQ(request.Text("c"), "");
  EXPECT_EQ(request.Text(""), "d");
}

TEST(Query, DecodesWhatItEncodes) {
  const std::string text = "/films/\xc3\xa4 b+c&d=e%?#.mkv";
  EXPECT_EQ(webapi::EncodeQueryValue(text), "/films/%C3%A4%20b%2Bc%26d%3De%25%3F%23.mkv");
  EXPECT_EQ(webapi::DecodeQueryValue(webapi::EncodeQueryValue(text)), text);
  EXPECT_EQ(webapi::DecodeQueryValue("a+b%2b"), "a b+");
}

TEST(Request, TakesQuotedTextsAsJsonWhereTheyAreJson) {
  const std::vector<std::pair<std::string, std::string>> texts = {
      {"\"a\"", "a"},     {"\"a\\nb\"", "a\nb"}, {"\"a\"b\"", "a\"b"},
      {"\"\\q\"", "\\q"}, {"\"\"", ""},          {"\"", "\""},
      {"\"a", "\"a"},     {"a\"", "a\""},        {"\"a\\u0000b\"", "a\\u0000b"}};
  for (const auto& [sent, meant] : texts) {
    Request request;
    ASSERT_TRUE(request.AddParameters("t=" + webapi::EncodeQueryValue(sent)));
    EXPECT_EQ(request.Text("t"), meant) << sent;
  }
}

TEST(Request, AcceptsWholeNumbersInTheirRange) {
  Request request;
  ASSERT_TRUE(request.AddParameters("a=12&b=-1&c=1.5&d=&e=12x&f=99999999999999999999"));
  EXPECT_EQ(request.Number("a", 12), 12);
  EXPECT_FALSE(request.Number("a", 11));
  for (const char* name : {"b", "c", "d", "e", "f", "absent"}) {
    EXPECT_FALSE(request.Number(name, 1000)) << name;
  }
}

TEST(Request, NamesItsStreamInTheNewerOrTheOlderSpelling) {
  Request older;
  ASSERT_TRUE(older.AddParameters("id=1"));
  EXPECT_EQ(older.StreamId(), "1");
  Request both;
  ASSERT_TRUE(both.AddParameters("id=1&stream_id=2"));
  EXPECT_EQ(both.StreamId(), "2");
}

TEST(Request, KnowsTheServerByTheHostHeaderOrByTheSocket) {
  Variables variables = {{"SERVER_NAME", "10.0.0.1"}, {"SERVER_PORT", "80"}};
  for (const char* host : {"films.lan", "films.lan:8096", "[::1]:80", "10-0.x"}) {
    variables["HTTP_HOST"] = host;
    const test::Environment environment(variables);
    EXPECT_EQ(Request().Authority(), host);
  }
  for (const char* host : {"", "a/b", "a b", "a\"b", "a@b", "<a>"}) {
    variables["HTTP_HOST"] = host;
    const test::Environment environment(variables);
    EXPECT_EQ(Request().Authority(), "10.0.0.1:80") << host;
  }
}

TEST(Request, IsEncryptedIfTheServerOrANamedProxySaysSo) {
  const auto scheme = [](const Variables& variables) {
    const test::Environment environment(variables);
    return Request().Scheme();
  };
  const std::string header = "HTTP_X_FORWARDED_PROTO";
  EXPECT_EQ(scheme({}), "http");
  EXPECT_EQ(scheme({{"HTTPS", "on"}}), "https");
  EXPECT_EQ(scheme({{"HTTPS", "1"}}), "https");
  EXPECT_EQ(scheme({{"HTTPS", "off"}}), "http");
  Variables proxied = {{"MIREVO_PROXIES", "10.0.0.2 10.0.0.3"}, {"REMOTE_ADDR", "10.0.0.3"}};
  EXPECT_EQ(scheme(proxied), "http");
  proxied[header] = "https";
  EXPECT_EQ(scheme(proxied), "https");
  proxied["REMOTE_ADDR"] = "10.0.0.4";
  EXPECT_EQ(scheme(proxied), "http") << "nobody has named this proxy";
}

TEST(Request, KnowsItsPathBehindTheProgram) {
  const auto path = [](const std::string& address, const std::string& prefix) {
    const test::Environment environment(
        Variables{{"SCRIPT_NAME", "/files"}, {"REQUEST_URI", address}, {"MIREVO_PREFIX", prefix}});
    return Request().PathInProgram();
  };
  EXPECT_EQ(path("/files/a%20b+c?d=e", ""), "/a b+c");
  EXPECT_EQ(path("/films/files/a", "/films"), "/a");
  EXPECT_EQ(path("/files/a", "/films"), "/a");
  EXPECT_FALSE(path("/elsewhere", ""));
  EXPECT_FALSE(path("/files/%zz", ""));
  EXPECT_FALSE(path("/files/%00", ""));
}

TEST(Request, BeginsWhereAnOpenRangeBegins) {
  const auto start = [](const std::string& range) {
    const test::Environment environment(Variables{{"HTTP_RANGE", range}});
    return Request().RangeStart();
  };
  EXPECT_EQ(start("bytes=0-"), 0);
  EXPECT_EQ(start("bytes=123-"), 123);
  for (const char* range :
       {"", "bytes=", "bytes=-", "bytes=1-2", "bytes=-5", "chunks=1-", "bytes=x-"}) {
    EXPECT_FALSE(start(range)) << range;
  }
}

TEST(Request, AcceptsTimesWithAndWithoutAFraction) {
  webapi::Request request;
  ASSERT_TRUE(request.AddParameters("a=12&b=12.5&c=%2212.25%22&d=-1&e=1e3&f=nan&g=12s&h=&i=inf"));
  EXPECT_EQ(request.Seconds("a", 100), 12);
  EXPECT_EQ(request.Seconds("b", 100), 12.5);
  EXPECT_EQ(request.Seconds("c", 100), 12.25);
  EXPECT_FALSE(request.Seconds("a", 11.5));
  for (const char* name : {"d", "e", "f", "g", "h", "i", "absent"}) {
    EXPECT_FALSE(request.Seconds(name, 10000)) << name;
  }
}

TEST(Query, AZeroByteIsRefusedInEveryForm) {
  using namespace std::string_literals;
  for (const std::string& text : {"a%00b"s, "a\0b"s, "\0"s}) {
    EXPECT_FALSE(webapi::DecodeQueryValue(text));
  }
  webapi::Request request;
  EXPECT_FALSE(request.AddParameters("path=/films/a.mkv\0.txt"s));
  ASSERT_TRUE(request.AddParameters("name=%22/films/a.mkv%5Cu0000.txt%22"));
  EXPECT_EQ(request.Text("name"), "/films/a.mkv\\u0000.txt");
}

}  // namespace
