#include "util/state_reading.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/sysroot.h"

namespace {

using orvo::JsonReading;
using orvo::ReadIfThere;
using orvo::ReadStateJson;

constexpr size_t kMost = 100;

// Root may read every file, so a link to itself stands for a file that cannot be opened.
class StateReading : public test::Sysroot {
 protected:
  void MakeUnreadable(const std::string& path) const {
    ASSERT_EQ(symlink(Path(path).c_str(), Path(path).c_str()), 0);
  }
};

TEST_F(StateReading, AnAbsentFileIsEmpty) {
  EXPECT_EQ(ReadIfThere(Path("/file"), kMost), "");
  Json::Value value("unchanged");
  EXPECT_EQ(ReadStateJson(Path("/file"), value), JsonReading::kAbsent);
  EXPECT_EQ(value, "unchanged");
}

TEST_F(StateReading, AFileThatCannotBeReadIsNotEmpty) {
  MakeUnreadable("/file");
  EXPECT_FALSE(ReadIfThere(Path("/file"), kMost));
  Json::Value value("unchanged");
  EXPECT_EQ(ReadStateJson(Path("/file"), value), JsonReading::kUnreadable);
  EXPECT_EQ(ReadStateJson(Path("/"), value), JsonReading::kUnreadable) << "a folder";
  EXPECT_EQ(value, "unchanged");
}

TEST_F(StateReading, AFileIsReadWhole) {
  Write("/file", "[1]");
  EXPECT_EQ(ReadIfThere(Path("/file"), kMost), "[1]");
  Json::Value value;
  EXPECT_EQ(ReadStateJson(Path("/file"), value), JsonReading::kRead);
  EXPECT_EQ(value[0].asInt(), 1);
}

TEST_F(StateReading, ADamagedFileDiffersFromAnUnreadableOne) {
  Write("/file", "[1");
  Json::Value value;
  EXPECT_EQ(ReadStateJson(Path("/file"), value), JsonReading::kNoJson);
}

}  // namespace
