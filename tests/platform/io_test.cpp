#include "platform/io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <thread>

#include "support/processes.h"
#include "support/sysroot.h"

namespace {

class Io : public test::Sysroot {
 protected:
  size_t FilesIn(const std::string& folder) const {
    const std::filesystem::directory_iterator entries(Path(folder));
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
  }
};

TEST_F(Io, AFileIsReplacedWholeAndWithItsModeWhateverTheMask) {
  Write("/folder/file", "a longer text than the new one");
  const mode_t before = umask(0077);
  EXPECT_TRUE(orvo::ReplaceFile(Path("/folder/file"), "new", 0644));
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(Path("/folder/file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644U);
  EXPECT_EQ(Read("/folder/file"), "new");
  EXPECT_EQ(FilesIn("/folder"), 1U);
}

TEST_F(Io, AFileThatCannotBeReplacedStaysAndNothingIsLeftBesideIt) {
  MakeDirectory("/folder/file/full");
  EXPECT_FALSE(orvo::ReplaceFile(Path("/folder/file"), "new"));
  EXPECT_EQ(FilesIn("/folder"), 1U);
  EXPECT_FALSE(orvo::ReplaceFile(Path("/missing/file"), "new"));
}

TEST_F(Io, AReaderOfAReplacedFileHasTheOldOneToItsEnd) {
  Write("/file", "old");
  const orvo::UniqueFd reader(open(Path("/file").c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(orvo::ReplaceFile(Path("/file"), "new"));
  char text[4] = {};
  EXPECT_EQ(read(reader.Get(), text, 3), 3);
  EXPECT_STREQ(text, "old");
}

TEST_F(Io, TouchingAFileKeepsItsContentAndMakesAMissingOne) {
  Write("/file", "text");
  const timespec past[2] = {{100, 0}, {100, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, Path("/file").c_str(), past, 0), 0);
  EXPECT_TRUE(orvo::TouchFile(Path("/file")));
  struct stat status {};
  ASSERT_EQ(stat(Path("/file").c_str(), &status), 0);
  EXPECT_GT(status.st_mtime, 100);
  EXPECT_EQ(Read("/file"), "text");
  EXPECT_TRUE(orvo::TouchFile(Path("/new")));
  EXPECT_TRUE(Exists("/new"));
  EXPECT_FALSE(orvo::TouchFile(Path("/missing/file")));
}

TEST_F(Io, MoreThanAPipeHoldsIsWrittenToItsEnd) {
  orvo::UniqueFd readEnd;
  orvo::UniqueFd writeEnd;
  ASSERT_TRUE(orvo::OpenPipe(readEnd, writeEnd));
  const std::string content(1 << 20, 'x');
  size_t seen = 0;
  std::thread reader([&] {
    char buffer[4096];
    for (ssize_t count = 1; count > 0; seen += static_cast<size_t>(count)) {
      count = read(readEnd.Get(), buffer, sizeof(buffer));
    }
  });
  EXPECT_TRUE(orvo::WriteAll(writeEnd.Get(), content));
  writeEnd.Reset();
  reader.join();
  EXPECT_EQ(seen, content.size());
}

TEST_F(Io, WritingToAFullDeviceFails) {
  const orvo::UniqueFd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  ASSERT_TRUE(full.IsOpen());
  EXPECT_FALSE(orvo::WriteAll(full.Get(), "x"));
  EXPECT_TRUE(orvo::WriteAll(full.Get(), ""));
}

TEST_F(Io, APipeTakesNoNumberOfAStandardStreamAndNoProgramInheritsIt) {
  test::InChild([] {
    for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; ++standard) {
      close(standard);
    }
    orvo::UniqueFd readEnd;
    orvo::UniqueFd writeEnd;
    const bool isOpen = orvo::OpenPipe(readEnd, writeEnd);
    orvo::DetachStandardStreams();
    ASSERT_TRUE(isOpen);
    for (const int end : {readEnd.Get(), writeEnd.Get()}) {
      EXPECT_GT(end, STDERR_FILENO);
      EXPECT_EQ(fcntl(end, F_GETFD), FD_CLOEXEC);
    }
  });
}

TEST_F(Io, AStreamIsReadToItsEndAndAppended) {
  std::istringstream stream(std::string(100000, 'x'));
  std::string content = "before ";
  EXPECT_TRUE(orvo::ReadAll(stream, content));
  EXPECT_EQ(content.size(), 100007U);
}

TEST_F(Io, AStreamThatIsTooLongIsNotReadToItsEnd) {
  for (const size_t length : {size_t{100001}, size_t{1} << 20}) {
    std::istringstream stream(std::string(length, 'x'));
    std::string content;
    EXPECT_FALSE(orvo::ReadAll(stream, content, 100000));
    EXPECT_LE(content.size(), 100000U);
  }
  std::istringstream stream(std::string(100000, 'x'));
  std::string content;
  EXPECT_TRUE(orvo::ReadAll(stream, content, 100000));
}

}  // namespace
