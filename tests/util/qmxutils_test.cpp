#include "util/qmxutils.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using namespace LibOrvoQMX;
using List = std::vector<std::string>;

class Utilities : public test::Sysroot {};

TEST_F(Utilities, AnExistingFileIsFoundAtOnce) {
  Write("/file", "");
  const double start = test::Now();
  EXPECT_TRUE(VerifyFileExist(Path("/file"), 60));
  EXPECT_TRUE(VerifyFileExist(Root(), 0)) << "a directory counts";
  EXPECT_LT(test::Now() - start, 0.5);
}

TEST_F(Utilities, AMissingFileIsLookedForOnceWithoutATimeOut) {
  const double start = test::Now();
  EXPECT_FALSE(VerifyFileExist(Path("/file"), 0));
  EXPECT_FALSE(VerifyFileExist("", 0));
  EXPECT_LT(test::Now() - start, 0.5);
}

TEST_F(Utilities, AMissingFileCostsOneSecondMoreThanTheTimeOut) {
  const double start = test::Now();
  EXPECT_FALSE(VerifyFileExist(Path("/file"), 1));
  const double spent = test::Now() - start;
  EXPECT_GE(spent, 1.9);
  EXPECT_LT(spent, 2.9);
}

TEST_F(Utilities, AFileThatAppearsIsFoundAtTheNextCheck) {
  // The first look happens before the parent makes the file: the child stops in between.
  test::Pipe looked;
  test::Child child([&] {
    looked.Write("x");
    EXPECT_TRUE(VerifyFileExist(Path("/file"), 30));
  });
  looked.Read(1);
  Write("/file", "");
  const double start = test::Now();
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_LT(test::Now() - start, 3.0);
}

TEST_F(Utilities, ADanglingLinkDoesNotExist) {
  ASSERT_EQ(symlink("/nowhere/at/all", Path("/link").c_str()), 0);
  EXPECT_FALSE(VerifyFileExist(Path("/link"), 0));
}

TEST_F(Utilities, FilesAreLookedForAsRootAndTheIdsComeBack) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  Write("/private/file", "");
  ASSERT_EQ(chmod(Path("/private").c_str(), 0700), 0);
  test::InChild([this] {
    ASSERT_EQ(setresuid(65534, 65534, 0), 0);
    ASSERT_NE(access(Path("/private/file").c_str(), F_OK), 0);
    EXPECT_TRUE(VerifyFileExist(Path("/private/file"), 0));
    EXPECT_FALSE(VerifyFileExist(Path("/private/other"), 0));
    EXPECT_EQ(geteuid(), 65534U);
    EXPECT_TRUE(test::TakeLog().empty());
  });
}

TEST_F(Utilities, ReadFileTakesTheFirst4096BytesUpToAZero) {
  Write("/file", std::string(5000, 'x'));
  EXPECT_EQ(ReadFile(Path("/file")), std::string(4096, 'x'));
  Write("/file", std::string("12\0more", 7));
  EXPECT_EQ(ReadFile(Path("/file")), "12");
  Write("/file", "word\n");
  EXPECT_EQ(ReadFile(Path("/file")), "word\n");
}

TEST_F(Utilities, ReadFileOfAMissingFileIsEmpty) {
  EXPECT_EQ(ReadFile(""), "");
  EXPECT_EQ(ReadFile(Path("/missing")), "");
  EXPECT_EQ(ReadFile(Root()), "");
  Write("/file", "");
  EXPECT_EQ(ReadFile(Path("/file")), "");
}

TEST_F(Utilities, SaveFileReplacesTheContent) {
  EXPECT_TRUE(SaveFile(Path("/file"), "a longer text"));
  EXPECT_TRUE(SaveFile(Path("/file"), "short"));
  EXPECT_EQ(Read("/file"), "short");
}

TEST_F(Utilities, SaveFileNeverWritesAnEmptyText) {
  Write("/file", "old");
  EXPECT_FALSE(SaveFile(Path("/file"), ""));
  EXPECT_EQ(Read("/file"), "old");
  EXPECT_FALSE(SaveFile(Path("/other"), ""));
  EXPECT_FALSE(Exists("/other"));
}

TEST_F(Utilities, SaveFileFailsIfTheFileCannotBeOpened) {
  EXPECT_FALSE(SaveFile("", "x"));
  EXPECT_FALSE(SaveFile(Path("/missing/file"), "x"));
  EXPECT_FALSE(SaveFile(Root(), "x"));
}

TEST_F(Utilities, KillSendsATermination) {
  test::Child child(test::SleepUntilKilled);
  EXPECT_EQ(KillProcess(child.Pid()), 0);
  EXPECT_EQ(child.Wait(), 128 + SIGTERM);
  EXPECT_EQ(KillProcess(child.Pid()), -1) << "it is gone";
}

TEST_F(Utilities, KillRefusesNumbersOfProcessGroups) {
  // In a group of its own the process would be the one that is hit.
  test::InChild([] {
    ASSERT_EQ(setpgid(0, 0), 0);
    EXPECT_EQ(KillProcess(0), -1);
    EXPECT_EQ(KillProcess(-getpid()), -1);
  });
  EXPECT_EQ(KillProcess(-1), -1);
}

TEST_F(Utilities, TextsAreSplitAtEveryDelimiterWithoutEmptyPieces) {
  const struct {
    const char* text;
    const char* delimiters;
    List pieces;
  } cases[] = {
      {"", ",", {}},
      {",,a,,b,", ",", {"a", "b"}},
      {"a;b,c", ",;", {"a", "b", "c"}},
      {"a", ",", {"a"}},
      {",,,", ",", {}},
      {"a b\nc", " \n", {"a", "b", "c"}},
      {"abc", "", {"abc"}},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(StringExplode(row.text, row.delimiters), row.pieces) << row.text;
  }
}

TEST_F(Utilities, NumbersBecomeTexts) {
  EXPECT_EQ(ToString(0U), "0");
  EXPECT_EQ(ToString(4294967295U), "4294967295");
  EXPECT_EQ(ToString(16.0F / 9), "1.77778");
  EXPECT_EQ(ToString(1.5F), "1.5");
  EXPECT_EQ(ToString(2.0F), "2");
  EXPECT_EQ(ToString(0.0F), "0");
  EXPECT_EQ(ToString(1e10F), "1e+10");
  EXPECT_EQ(ToString(1e-7F), "1e-07");
}

}  // namespace
