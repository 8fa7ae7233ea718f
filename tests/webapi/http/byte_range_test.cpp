#include "webapi/http/byte_range.h"

#include <gtest/gtest.h>

namespace {

using webapi::NamesTag;
using webapi::ParseByteRange;

struct Row {
  const char* header;
  int64_t first;
  int64_t last;
};

TEST(ByteRange, IsCutToTheResource) {
  for (const Row& row : {Row{"bytes=0-0", 0, 0}, Row{"bytes=0-99", 0, 99}, Row{"bytes=10-", 10, 99},
                         Row{"bytes=90-1000", 90, 99}, Row{"bytes=-5", 95, 99},
                         Row{"bytes=-1000", 0, 99}, Row{"bytes= 1-2\t", 1, 2}}) {
    bool outside = true;
    const auto range = ParseByteRange(row.header, 100, outside);
    ASSERT_TRUE(range) << row.header;
    EXPECT_EQ(range->first, row.first) << row.header;
    EXPECT_EQ(range->last, row.last) << row.header;
    EXPECT_FALSE(outside) << row.header;
  }
}

TEST(ByteRange, OfAnotherFormMeansTheWholeResource) {
  for (const char* header :
       {"", "bytes", "bytes=", "bytes=-", "bytes=a-b", "bytes=5-2", "items=0-1", "bytes=0-1,5-6",
        "bytes=--5", "bytes=1--2", "bytes=+1-2", "bytes=99999999999999999999-"}) {
    bool outside = true;
    EXPECT_FALSE(ParseByteRange(header, 100, outside)) << header;
    EXPECT_FALSE(outside) << header;
  }
}

TEST(ByteRange, AfterTheEndIsOutside) {
  for (const char* header : {"bytes=100-", "bytes=100-200", "bytes=-0"}) {
    bool outside = false;
    EXPECT_FALSE(ParseByteRange(header, 100, outside)) << header;
    EXPECT_TRUE(outside) << header;
  }
  bool outside = false;
  EXPECT_FALSE(ParseByteRange("bytes=0-", 0, outside));
  EXPECT_TRUE(outside);
}

TEST(ByteRange, ATagIsFoundAmongOthersAndIfItIsWeak) {
  for (const char* header : {"\"a\"", "W/\"a\"", "\"b\", \"a\"", "*", " \"a\" "}) {
    EXPECT_TRUE(NamesTag(header, "\"a\"")) << header;
  }
  for (const char* header : {"", "\"b\"", "a", "\"a", "\"b\",", ","}) {
    EXPECT_FALSE(NamesTag(header, "\"a\"")) << header;
  }
}

}  // namespace
