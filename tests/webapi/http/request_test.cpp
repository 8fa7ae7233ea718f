#include "webapi/http/request.h"

#include <gtest/gtest.h>

namespace {

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
