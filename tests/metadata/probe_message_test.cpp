#include "metadata/probe_message.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using LibOrvoQMX::DecodeProbeMessage;
using LibOrvoQMX::EncodeProbeMessage;

Json::Value Example() {
  Json::Value value(Json::objectValue);
  value["signed"] = Json::Int64(-9223372036854775807);
  value["unsigned"] = 5U;
  value["real"] = 29.970029830932617;
  value["whole"] = 25.0;
  value["text"] = std::string("no UTF-8: \xff, \0 inside", 21);
  value["list"].append(true);
  value["list"].append(Json::Value());
  value["list"].append(Json::Value(Json::objectValue));
  return value;
}

TEST(ProbeMessage, KeepsEveryValueAndItsKind) {
  const auto decoded = DecodeProbeMessage(EncodeProbeMessage(Example()));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(*decoded, Example());
  EXPECT_EQ((*decoded)["unsigned"].type(), Json::uintValue);
  EXPECT_EQ((*decoded)["signed"].type(), Json::intValue);
  EXPECT_EQ((*decoded)["whole"].type(), Json::realValue);
}

TEST(ProbeMessage, RefusesAMessageThatWasCutOrGoesOn) {
  const std::string bytes = EncodeProbeMessage(Example());
  for (size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_FALSE(DecodeProbeMessage(bytes.substr(0, length))) << length;
  }
  EXPECT_FALSE(DecodeProbeMessage(bytes + "n"));
}

TEST(ProbeMessage, RefusesBottomlessNestingLengthsOutOfBoundsAndUnknownKinds) {
  std::string nested;
  for (int n = 0; n < 100000; ++n) {
    nested += std::string("a\1\0\0\0", 5);
  }
  EXPECT_FALSE(DecodeProbeMessage(nested + "n"));
  EXPECT_FALSE(DecodeProbeMessage("s\xff\xff\xff\xff"));
  EXPECT_FALSE(DecodeProbeMessage("a\xff\xff\xff\xff"));
  EXPECT_FALSE(DecodeProbeMessage("o\xff\xff\xff\xff"));
  EXPECT_FALSE(DecodeProbeMessage("?"));
}

}  // namespace
