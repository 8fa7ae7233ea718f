#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/plat.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

class Storage : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    oldMask_ = umask(0);
  }
  void TearDown() override {
    umask(oldMask_);
    Sysroot::TearDown();
  }
  mode_t ModeOf(const std::string& path) const {
    struct stat status {};
    EXPECT_EQ(stat(Path(path).c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }

 private:
  mode_t oldMask_ = 0;
};

TEST_F(Storage, MakesADirectoryWithItsParents) {
  EXPECT_EQ(PlatFSMkdirP(Path("/a/b/c"), 0, 1, geteuid(), getegid(), 0750), 0);
  EXPECT_EQ(ModeOf("/a"), 0750U);
  EXPECT_EQ(ModeOf("/a/b/c"), 0750U);
}

TEST_F(Storage, MakesNoParentsUnlessAsked) {
  errno = 0;
  EXPECT_EQ(PlatFSMkdirP(Path("/a/b"), 0, 0, 0, 0, 0777), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(Exists("/a"));
}

TEST_F(Storage, AnExistingDirectoryIsFineUnlessItMustBeNew) {
  MakeDirectory("/a");
  EXPECT_EQ(PlatFSMkdirP(Path("/a"), 0, 1, 0, 0, 0700), 0);
  EXPECT_EQ(PlatFSMkdirP(Path("/a"), 1, 1, 0, 0, 0700), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_NE(ModeOf("/a"), 0700U) << "what was there stays as it was";
  EXPECT_EQ(PlatFSMkdirP(Path("/b/c"), 1, 1, geteuid(), getegid(), 0700), 0);
}

TEST_F(Storage, AFileInTheWayIsAFailure) {
  Write("/a", "file");
  EXPECT_EQ(PlatFSMkdirP(Path("/a"), 0, 1, 0, 0, 0777), -1);
  EXPECT_EQ(PlatFSMkdirP(Path("/a/b"), 0, 1, 0, 0, 0777), -1);
  errno = 0;
  EXPECT_EQ(PlatFSMkdirP("", 0, 1, 0, 0, 0777), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Storage, RootGivesNewDirectoriesAway) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  ASSERT_EQ(PlatFSMkdirP(Path("/a/b"), 0, 1, 1024, 100, 0777), 0);
  for (const char* path : {"/a", "/a/b"}) {
    struct stat status {};
    ASSERT_EQ(stat(Path(path).c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1024U);
    EXPECT_EQ(status.st_gid, 100U);
  }
}

TEST_F(Storage, AnotherUserMakesDirectoriesOfItsOwn) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  ASSERT_EQ(chmod(Root().c_str(), 0777), 0);
  test::InChild([this] {
    ASSERT_EQ(setresuid(65534, 65534, 65534), 0);
    EXPECT_EQ(PlatFSMkdirP(Path("/a"), 0, 1, 1024, 100, 0777), 0);
  });
  struct stat status {};
  ASSERT_EQ(stat(Path("/a").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534U);
}

TEST_F(Storage, TheApplicationsDirectoriesAreMadeWithTheirParents) {
  using libmrv::critical::orvosdk::ORVOFSMkdirPMirevo;
  EXPECT_TRUE(ORVOFSMkdirPMirevo(Path("/x/y"), 0777));
  EXPECT_TRUE(ORVOFSMkdirPMirevo(Path("/x/y"), 0777));
  EXPECT_EQ(ModeOf("/x/y"), 0777U);
  Write("/file", "");
  EXPECT_FALSE(ORVOFSMkdirPMirevo(Path("/file/y"), 0777));
}

TEST_F(Storage, MeasuresFiles) {
  using libmrv::critical::fileop::CheckFileAndGetSize;
  int64_t size = -7;
  EXPECT_FALSE(CheckFileAndGetSize(Path("/missing"), size));
  EXPECT_FALSE(CheckFileAndGetSize("", size));
  Write("/empty", "");
  EXPECT_TRUE(CheckFileAndGetSize(Path("/empty"), size));
  EXPECT_EQ(size, 0);
  Write("/large", "");
  ASSERT_EQ(truncate(Path("/large").c_str(), 5000000000), 0);
  EXPECT_TRUE(CheckFileAndGetSize(Path("/large"), size));
  EXPECT_EQ(size, 5000000000);
}

TEST_F(Storage, WhatTheIndexerKnowsLiesBesideTheFilm) {
  using libmrv::critical::orvoindex::GetEADirPath;
  std::string directory;
  EXPECT_TRUE(GetEADirPath("/volume1/video/a film.mkv", directory));
  EXPECT_EQ(directory, "/volume1/video/@ea/a film.mkv");
  EXPECT_TRUE(GetEADirPath("film.mkv", directory));
  EXPECT_EQ(directory, "@ea/film.mkv");
  EXPECT_FALSE(GetEADirPath("", directory));
  EXPECT_FALSE(GetEADirPath("/volume1/video/", directory));
}

}  // namespace
