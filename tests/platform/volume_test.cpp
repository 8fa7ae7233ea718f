#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/plat.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

constexpr uint64_t kMegabyte = 1024 * 1024;

class Volume : public test::Sysroot {
 protected:
  struct Answer {
    int result;
    std::string mountPath;
    unsigned flags;
    bool operator==(const Answer& other) const {
      return result == other.result && mountPath == other.mountPath && flags == other.flags;
    }
  };

  static Answer Ask(uint64_t space) {
    Answer answer{0, "", 77};
    answer.result = VolumeAvailGet(space, answer.mountPath, answer.flags);
    return answer;
  }

  static std::vector<std::string> Listed() {
    std::vector<PlatVolume> volumes;
    EXPECT_TRUE(VolumeList(volumes));
    std::vector<std::string> paths;
    paths.reserve(volumes.size());
    for (const PlatVolume& volume : volumes) {
      paths.push_back(volume.mountPath);
    }
    return paths;
  }

  // Runs `body` in a process with mounts of its own, in which `mount` can be called.
  void WithMounts(const std::function<void()>& body) const {
    if (geteuid() != 0) {
      GTEST_SKIP() << "needs root";
    }
    test::Pipe outcome;
    test::InChild([&] {
      if (unshare(CLONE_NEWNS) != 0 ||
          mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        outcome.Write("none");
        return;
      }
      body();
    });
    if (!outcome.ReadToEnd().empty()) {
      GTEST_SKIP() << "needs the right to mount";
    }
  }

  void MountMemory(const std::string& path, int megabytes, unsigned long flags = 0,
                   const char* source = "memory") const {
    MakeDirectory(path);
    const std::string size = "size=" + std::to_string(megabytes) + "m";
    ASSERT_EQ(mount(source, Path(path).c_str(), "tmpfs", flags, size.c_str()), 0);
  }
};

TEST_F(Volume, IsADirectoryOfTheSysrootNamedVolumeAndANumber) {
  for (const char* name :
       {"/volume2", "/volume10", "/volume", "/volumeA", "/volume1a", "/Volume3"}) {
    MakeDirectory(name);
  }
  Write("/volume5", "a file");
  EXPECT_EQ(Listed(), (std::vector{Path("/volume1"), Path("/volume10"), Path("/volume2")}));
  EXPECT_EQ(Ask(1), (Answer{1, Path("/volume1"), kVolumeExists}));
}

TEST_F(Volume, ListIsTakenFromTheAppliancesFileWhereThereIsOne) {
  MakeDirectory("/mnt/disk");
  Write("/etc/orvo/volumes", "/mnt/disk\n/mnt/missing\n\n.\n/mnt/disk\n");
  EXPECT_EQ(Listed(), std::vector{Path("/mnt/disk")});
  EXPECT_EQ(Ask(0), (Answer{1, Path("/mnt/disk"), kVolumeExists}));
}

TEST_F(Volume, ThatDoesNotExistIsToldByTheFlags) {
  rmdir(Path("/volume1").c_str());
  EXPECT_EQ(Ask(0), (Answer{0, "", 0}));
  Write("/etc/orvo/volumes", "");
  MakeDirectory("/volume1");
  EXPECT_EQ(Ask(0), (Answer{0, "", 0})) << "an empty list is a list";
}

TEST_F(Volume, WithTooLittleRoomIsNotChosen) {
  EXPECT_EQ(Ask(UINT64_MAX), (Answer{0, "", kVolumeExists}));
}

TEST_F(Volume, ThatNobodyMayWriteIsToldByTheFlags) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "needs root";
  }
  ASSERT_EQ(chmod(Path("/volume1").c_str(), 0755), 0);
  test::InChild([] {
    ASSERT_EQ(setresuid(65534, 65534, 65534), 0);
    EXPECT_EQ(Ask(1), (Answer{0, "", kVolumeExists | kVolumeNoneWritable}));
  });
}

TEST_F(Volume, WithTheMostFreeSpaceIsChosen) {
  WithMounts([this] {
    MountMemory("/volume1", 8);
    MountMemory("/volume2", 32);
    MountMemory("/volume3", 16);
    EXPECT_EQ(Ask(1 * kMegabyte), (Answer{1, Path("/volume2"), kVolumeExists}));
    EXPECT_EQ(Ask(31 * kMegabyte), (Answer{1, Path("/volume2"), kVolumeExists}));
    EXPECT_EQ(Ask(32 * kMegabyte), (Answer{1, Path("/volume2"), kVolumeExists}));
    EXPECT_EQ(Ask(32 * kMegabyte + 1), (Answer{0, "", kVolumeExists}));
    Write("/volume2/filler", std::string(24 * kMegabyte, 'x'));
    EXPECT_EQ(Ask(1 * kMegabyte), (Answer{1, Path("/volume3"), kVolumeExists}));
  });
}

TEST_F(Volume, ThatIsReadOnlyIsNotChosenEvenByRoot) {
  WithMounts([this] {
    MountMemory("/volume1", 8);
    MountMemory("/volume2", 32, MS_RDONLY);
    EXPECT_EQ(Ask(1), (Answer{1, Path("/volume1"), kVolumeExists}));
    MountMemory("/volume1", 8, MS_RDONLY);
    EXPECT_EQ(Ask(1), (Answer{0, "", kVolumeExists | kVolumeNoneWritable}));
  });
}

TEST_F(Volume, IsAMountedDiskThatCanBeWrittenWhereThereIsNoSysroot) {
  WithMounts([this] {
    constexpr char kDisk[] = "/dev/disk-of-the-test";
    MountMemory("/disk", 1, 0, kDisk);
    MountMemory("/read only", 1, MS_RDONLY, kDisk);
    MountMemory("/memory", 1);
    const std::string root = Root();
    unsetenv("ORVO_SYSROOT");
    std::vector<std::string> own;
    for (const std::string& path : Listed()) {
      if (path.rfind(root, 0) == 0) {
        own.push_back(path.substr(root.size()));
      }
    }
    EXPECT_EQ(own, std::vector<std::string>{"/disk"});
  });
}

TEST_F(Volume, IsNoneOfTheKernelsFileSystems) {
  unsetenv("ORVO_SYSROOT");
  std::vector<PlatVolume> volumes;
  ASSERT_TRUE(VolumeList(volumes));
  for (const PlatVolume& volume : volumes) {
    struct stat status {};
    ASSERT_EQ(stat(volume.mountPath.c_str(), &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode)) << volume.mountPath;
    EXPECT_NE(volume.mountPath, "/proc");
    EXPECT_NE(volume.mountPath, "/sys");
    EXPECT_GE(volume.totalBytes, volume.freeBytes);
  }
}

}  // namespace
