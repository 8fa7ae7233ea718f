// The key file that the boxes of a cluster share.
#include "webapi/cluster/cluster_keys.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/sysroot.h"

namespace {

using webapi::NewClusterKey;
using webapi::ReadClusterKeys;

class KeyFile : public test::Sysroot {
 protected:
  std::string Make(const std::string& content, mode_t mode = 0600) const {
    Write("/etc/key", content);
    chmod(Path("/etc/key").c_str(), mode);
    return Path("/etc/key");
  }
};

TEST_F(KeyFile, HoldsOneKeyALine) {
  const std::string old = NewClusterKey();
  const auto both = ReadClusterKeys(Make(NewClusterKey() + "\n" + old + "\n"));
  EXPECT_EQ(both.problem, "");
  ASSERT_EQ(both.keys.size(), 2U);
  EXPECT_NE(both.keys[0], both.keys[1]);
  EXPECT_EQ(both.keys[1], ReadClusterKeys(Make(old)).keys.at(0));
}

TEST_F(KeyFile, MustBeClosedToOthers) {
  for (const mode_t mode : {0640U, 0604U, 0644U, 0610U}) {
    const auto read = ReadClusterKeys(Make(NewClusterKey(), mode));
    EXPECT_TRUE(read.keys.empty());
    EXPECT_NE(read.problem.find("0600"), std::string::npos) << read.problem;
  }
}

TEST_F(KeyFile, MustHoldNothingButKeys) {
  const std::string key = NewClusterKey();
  for (const std::string& content :
       {std::string(), std::string("secret\n"), key + "\n\n", key + " \n", key + "A\n"}) {
    const auto read = ReadClusterKeys(Make(content));
    EXPECT_TRUE(read.keys.empty());
    EXPECT_NE(read.problem, "") << content;
  }
}

TEST_F(KeyFile, MustExist) {
  EXPECT_NE(ReadClusterKeys(Path("/etc/none")).problem.find("cannot be read"), std::string::npos);
}

}  // namespace
