#include "util/system_files.h"

#include <gtest/gtest.h>

#include "support/sysroot.h"

namespace {

using LibOrvoQMX::ReadProfiles;

class ProfileFiles : public test::Sysroot {};

TEST_F(ProfileFiles, ThatHaveJustChangedAreReadEachTime) {
  for (const char* content : {R"({"a": "1"})", R"({"a": "2"})", R"({"a": "3"})"}) {
    Write("/profiles.json", content);
    EXPECT_EQ(ReadProfiles(Path("/profiles.json")), test::ParseText(content));
  }
}

TEST_F(ProfileFiles, AreToldApartByPath) {
  Write("/profiles.json", R"({"a": "1"})");
  EXPECT_TRUE(ReadProfiles(Path("/profiles.json")).isObject());
  EXPECT_TRUE(ReadProfiles(Path("/missing.json")).isNull());
  EXPECT_TRUE(ReadProfiles("").isNull());
}

TEST_F(ProfileFiles, ThatAreDamagedHoldNothing) {
  Write("/profiles.json", "{");
  EXPECT_TRUE(ReadProfiles(Path("/profiles.json")).isNull());
}

}  // namespace
