#include "util/file_state.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>

#include "support/sysroot.h"

namespace {

using orvo::FileState;

class AFilesState : public test::Sysroot {
 protected:
  std::string Text() const { return FileState::Of(Path("/film")).value().text; }

  void SetModified(time_t seconds, long nanoseconds) const {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(utimensat(AT_FDCWD, Path("/film").c_str(), times, 0), 0);
  }
};

TEST_F(AFilesState, StaysWhileTheFileIsOnlyRead) {
  Write("/film", "content");
  const std::string state = Text();
  EXPECT_EQ(Read("/film"), "content");
  EXPECT_EQ(Text(), state);
}

TEST_F(AFilesState, ChangesWithEveryChangeOfTheFile) {
  Write("/film", "content");
  SetModified(100, 5);
  struct stat status {};
  ASSERT_EQ(stat(Path("/film").c_str(), &status), 0);
  const std::string text = Text();
  EXPECT_EQ(text.rfind("7 100.000000005 ", 0), 0U) << text;
  std::istringstream fields(text);
  std::string field;
  fields >> field >> field >> field;
  EXPECT_EQ(field.substr(0, field.find('.')), std::to_string(status.st_ctim.tv_sec));
  EXPECT_EQ(std::stol(field.substr(field.find('.') + 1)), status.st_ctim.tv_nsec);
  fields >> field;
  EXPECT_EQ(field, std::to_string(status.st_ino));
  fields >> field;
  EXPECT_EQ(field, std::to_string(status.st_dev));
}

TEST_F(AFilesState, DiffersForAnotherFileWithTheSameTime) {
  Write("/film", "content");
  SetModified(100, 0);
  const std::string first = Text();
  std::filesystem::rename(Path("/film"), Path("/old"));
  Write("/film", "CONTENT");
  SetModified(100, 0);
  EXPECT_NE(Text(), first);
}

TEST_F(AFilesState, IsSettledOnlyIfTheFileDidNotChangeRecently) {
  Write("/film", "content");
  EXPECT_FALSE(FileState::Of(Path("/film")).value().isSettled);
  SetModified(100, 0);
  EXPECT_FALSE(FileState::Of(Path("/film")).value().isSettled) << "its status was changed now";
  EXPECT_TRUE(FileState::Of("/bin/sh").value().isSettled);
}

TEST_F(AFilesState, ExistsOnlyForPlainFiles) {
  EXPECT_FALSE(FileState::Of(Path("/missing")));
  EXPECT_FALSE(FileState::Of(Root()));
  EXPECT_FALSE(FileState::Of("/dev/null"));
}

TEST_F(AFilesState, OfAFolderChangesWithTheNamesInIt) {
  MakeDirectory("/folder");
  const timespec old[2] = {{100, 0}, {100, 0}};
  const auto age = [&] { ASSERT_EQ(utimensat(AT_FDCWD, Path("/folder").c_str(), old, 0), 0); };
  age();
  const std::string empty = FileState::OfFolder(Path("/folder")).value().text;
  Write("/folder/film", "content");
  const std::string full = FileState::OfFolder(Path("/folder")).value().text;
  EXPECT_NE(full, empty);
  std::filesystem::rename(Path("/folder/film"), Path("/folder/other"));
  EXPECT_NE(FileState::OfFolder(Path("/folder")).value().text, full);
  EXPECT_FALSE(FileState::OfFolder(Path("/folder/other"))) << "a plain file";
}

}  // namespace
