#include "state/stream_directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/unique_fd.h"
#include "support/processes.h"
#include "support/streams.h"

namespace {

using LibOrvoQMX::StreamDirectory;
using test::kId;

class StreamFiles : public test::StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    MakeDirectory(Directory("HLS"));
  }
  static std::string File(const std::string& name) { return Directory("HLS") + "/" + name; }
  mode_t ModeOf(const std::string& name) const {
    struct stat status {};
    EXPECT_EQ(stat(Path(File(name)).c_str(), &status), 0) << name;
    return status.st_mode & 07777;
  }
};

TEST_F(StreamFiles, AreInTheStreamsDirectory) {
  const StreamDirectory directory("HLS", kId);
  EXPECT_EQ(directory.Path(), Path(Directory("HLS")));
  EXPECT_EQ(directory.SegmentPath(7), Path(File("slice-00007.ts")));
  EXPECT_EQ(directory.SegmentPattern(), Path(File("slice-%05d.ts")));
  EXPECT_EQ(directory.FragmentPath("QualityLevels(1)/Fragments(video=0)"),
            Path(File("smooth/QualityLevels(1)/Fragments(video=0)")));
}

TEST_F(StreamFiles, OfNoStreamHaveNoPath) {
  for (const StreamDirectory& none : {StreamDirectory("", kId), StreamDirectory("HLS", "")}) {
    EXPECT_EQ(none.Path(), "");
    EXPECT_EQ(none.FilePath("x"), "");
    EXPECT_FALSE(none.MonitorPid().Write(1));
    EXPECT_FALSE(none.Monitor());
    EXPECT_FALSE(none.IsMonitored());
    EXPECT_FALSE(none.LockMonitor().IsOpen());
  }
}

TEST_F(StreamFiles, NameTheMonitor) {
  const StreamDirectory directory("HLS", kId);
  EXPECT_FALSE(directory.Monitor());
  ASSERT_TRUE(directory.MonitorPid().Write(getpid()));
  EXPECT_EQ(Read(File("monitor.pid")), std::to_string(getpid()));
  EXPECT_EQ(directory.Monitor(), getpid());
  EXPECT_TRUE(directory.IsMonitored());
  // A number beyond all processes must not become another's.
  Write(File("monitor.pid"), std::to_string((int64_t{1} << 32) + getpid()));
  EXPECT_FALSE(directory.IsMonitored());
  directory.MonitorPid().Remove();
  EXPECT_FALSE(Exists(File("monitor.pid")));
}

TEST_F(StreamFiles, AreReplacedInOneStepWhereNobodyLocksThem) {
  const StreamDirectory directory("HLS", kId);
  ASSERT_TRUE(directory.Film().Replace("the old film"));
  const orvo::UniqueFd reader(open(Path(File("film")).c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(directory.Film().Replace("new"));
  EXPECT_EQ(Read(File("film")), "new");
  char text[32] = {};
  EXPECT_EQ(read(reader.Get(), text, sizeof(text)), 12) << text;
  // A folder cannot be replaced by a file.
  directory.Film().Remove();
  MakeDirectory(File("film"));
  EXPECT_FALSE(directory.Film().Replace("new"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.Path()), {}), 1);
}

TEST_F(StreamFiles, AreWrittenInPlaceWhereProcessesLockThem) {
  const StreamDirectory directory("HLS", kId);
  const auto lock = directory.SeekTime().Lock();
  ASSERT_TRUE(directory.SeekTime().Write(7));
  EXPECT_TRUE(directory.SeekTime().IsLocked());
}

TEST_F(StreamFiles, ANumberThatBelongsToAnotherProcessNowNamesNoMonitor) {
  const StreamDirectory directory("HLS", kId);
  ASSERT_TRUE(directory.RecordMonitor(getpid()));
  EXPECT_EQ(directory.Monitor(), getpid());
  EXPECT_EQ(directory.OpenMonitor().value().Pid(), getpid());
  Write(File("monitor.start"), std::to_string(getpid()) + " 1");
  EXPECT_FALSE(directory.Monitor());
  EXPECT_FALSE(directory.IsMonitored());
  EXPECT_FALSE(directory.OpenMonitor().value());
}

// Root may read every file, so a link to itself stands for a file that cannot be opened.
TEST_F(StreamFiles, AMonitorWhoseRecordCannotBeReadMayRun) {
  const StreamDirectory directory("HLS", kId);
  EXPECT_FALSE(directory.IsMonitored());
  for (const char* name : {"monitor.pid", "monitor.start"}) {
    ASSERT_EQ(symlink(name, Path(File(name)).c_str()), 0);
    EXPECT_TRUE(directory.IsMonitored()) << name;
    EXPECT_FALSE(directory.Monitor()) << name;
    EXPECT_FALSE(directory.OpenMonitor()) << name;
    unlink(Path(File(name)).c_str());
  }
}

TEST_F(StreamFiles, ALockFileThatCannotBeOpenedMayBeLocked) {
  const StreamDirectory directory("HLS", kId);
  EXPECT_FALSE(directory.SeekTime().IsLocked());
  ASSERT_EQ(symlink("seek_time", Path(File("seek_time")).c_str()), 0);
  EXPECT_TRUE(directory.SeekTime().IsLocked());
}

TEST_F(StreamFiles, AreLockedWithTheModesOfTheirKind) {
  const StreamDirectory directory("HLS", kId);
  const mode_t previous = umask(0);
  {
    const auto monitor = directory.LockMonitor();
    const auto seekTime = directory.SeekTime().Lock();
    EXPECT_TRUE(directory.SeekTime().IsLocked());
  }
  umask(previous);
  EXPECT_FALSE(directory.SeekTime().IsLocked());
  EXPECT_EQ(ModeOf("filelock"), mode_t{0660});
  EXPECT_EQ(ModeOf("seek_time"), mode_t{0666});
}

TEST_F(StreamFiles, StoreTheLastRequestedPiece) {
  const StreamDirectory directory("HLS", kId);
  EXPECT_EQ(directory.LastAskedFor(), -1);
  directory.AskFor(123456);
  EXPECT_EQ(Read(File("requested")), "0123456");
  directory.AskFor(7);
  EXPECT_EQ(Read(File("requested")), "0000007") << "nothing of the longer number is left";
  EXPECT_EQ(directory.LastAskedFor(), 7);
  directory.AskForByte(12345678901);
  directory.AskForByte(5);
  EXPECT_EQ(directory.LastAskedFor(), 5);
}

// The parent of a process started before it.
TEST_F(StreamFiles, StoreNoRequestThatRunsAfterALaterOne) {
  const StreamDirectory directory("HLS", kId);
  directory.AskFor(3);
  test::Child later([&] { directory.AskFor(50); });
  ASSERT_EQ(later.Wait(), 0);
  directory.AskFor(10);
  EXPECT_EQ(directory.LastAskedFor(), 50);
}

TEST_F(StreamFiles, StoreARequestAfterAnImpossibleRecordOfALaterOne) {
  const StreamDirectory directory("HLS", kId);
  Write(File("asked_by"), "99999999999999 1");
  directory.AskFor(10);
  EXPECT_EQ(directory.LastAskedFor(), 10) << "the machine has been started since";
}

TEST_F(StreamFiles, TellTheLastAccess) {
  const StreamDirectory directory("HLS", kId);
  EXPECT_FALSE(directory.SecondsSinceAccess());
  EXPECT_EQ(directory.LastAccess(), 0);
  directory.MarkAccess();
  ASSERT_TRUE(directory.SecondsSinceAccess());
  EXPECT_LT(*directory.SecondsSinceAccess(), 60U);
}

}  // namespace
