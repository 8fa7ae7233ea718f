#include "util/subtitle.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using libmrv::subtitle::GetExternalSubtitle;
using libmrv::subtitle::GetExternalSubtitleImp;

class ExternalSubtitles : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    if (geteuid() != 0) {
      GTEST_SKIP() << "needs root";
    }
    ASSERT_EQ(chmod(Root().c_str(), 0755), 0);
    Write("/film.eng.srt", "1");
    ASSERT_EQ(chmod(Path("/film.eng.srt").c_str(), 0600), 0);
  }

  Json::Value Expected() const {
    Json::Value files(Json::arrayValue);
    files.append(Path("/film.eng.srt"));
    return files;
  }
};

TEST_F(ExternalSubtitles, AreFoundWithBorrowedRights) {
  test::InChild([this] {
    ASSERT_EQ(setresuid(65534, 65534, 0), 0);
    Json::Value files(Json::arrayValue);
    EXPECT_EQ(GetExternalSubtitle(Path("/film.mkv"), files), 0);
    EXPECT_EQ(files, Expected());
    EXPECT_EQ(geteuid(), 65534U);
  });
}

TEST_F(ExternalSubtitles, AreThoseThatTheEffectiveUserMayRead) {
  test::InChild([this] {
    ASSERT_EQ(setresuid(0, 65534, 0), 0);
    Json::Value files(Json::arrayValue);
    EXPECT_EQ(GetExternalSubtitleImp(Path("/film.mkv"), files), 0);
    EXPECT_TRUE(files.empty());
    ASSERT_EQ(setresuid(65534, 0, 0), 0);
    EXPECT_EQ(GetExternalSubtitleImp(Path("/film.mkv"), files), 0);
    EXPECT_EQ(files, Expected());
  });
}

}  // namespace
