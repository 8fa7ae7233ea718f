// Lists the data volumes and chooses one with enough free space.
#include <fcntl.h>
#include <mntent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

#include "platform/plat.h"

namespace {

constexpr char kVolumesFile[] = "/etc/orvo/volumes";
constexpr char kMountTable[] = "/proc/self/mounts";

// File systems with data on disk whose source is not a device node.
constexpr std::array kPooledFileSystems = {"btrfs", "overlay", "zfs"};

bool IsVolumeName(const std::string& name) {
  constexpr char kPrefix[] = "volume";
  constexpr size_t kLength = sizeof(kPrefix) - 1;
  return name.size() > kLength && name.compare(0, kLength, kPrefix) == 0 &&
         std::all_of(name.begin() + kLength, name.end(),
                     [](unsigned char c) { return std::isdigit(c) != 0; });
}

std::vector<std::string> ListedVolumes(std::ifstream& list) {
  std::vector<std::string> paths;
  std::string line;
  while (std::getline(list, line)) {
    if (!line.empty() && line.front() == '/') {
      paths.push_back(orvo::SystemPath(line));
    }
  }
  return paths;
}

bool SysrootVolumes(const std::string& sysroot, std::vector<std::string>& paths) {
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator(sysroot, failure)) {
    if (IsVolumeName(entry.path().filename()) && entry.is_directory(failure)) {
      paths.push_back(entry.path());
    }
  }
  std::sort(paths.begin(), paths.end());
  return !failure;
}

bool IsDiskBacked(const mntent& mount) {
  const std::string source = mount.mnt_fsname;
  return source.rfind("/dev/", 0) == 0 ||
         std::any_of(kPooledFileSystems.begin(), kPooledFileSystems.end(),
                     [&](const char* type) { return std::string(mount.mnt_type) == type; });
}

bool MountedVolumes(std::vector<std::string>& paths) {
  const std::unique_ptr<FILE, decltype(&endmntent)> table(setmntent(kMountTable, "re"), endmntent);
  if (!table) {
    return false;
  }
  mntent mount{};
  std::array<char, 4 * 4096> text{};
  while (getmntent_r(table.get(), &mount, text.data(), text.size()) != nullptr) {
    std::error_code failure;
    // Single files can be mount points as well (a container's /etc/hosts).
    if (IsDiskBacked(mount) && hasmntopt(&mount, MNTOPT_RO) == nullptr &&
        std::filesystem::is_directory(mount.mnt_dir, failure)) {
      paths.emplace_back(mount.mnt_dir);
    }
  }
  return true;
}

bool VolumePaths(std::vector<std::string>& paths) {
  std::ifstream list(orvo::SystemPath(kVolumesFile));
  if (list.is_open()) {
    paths = ListedVolumes(list);
    return true;
  }
  const std::string root = orvo::SystemPath("/");
  return root == "/" ? MountedVolumes(paths) : SysrootVolumes(root, paths);
}

bool Measure(const std::string& path, PlatVolume& volume) {
  struct statvfs status {};
  if (statvfs(path.c_str(), &status) != 0) {
    return false;
  }
  volume.mountPath = path;
  volume.freeBytes = static_cast<uint64_t>(status.f_bavail) * status.f_frsize;
  volume.totalBytes = static_cast<uint64_t>(status.f_blocks) * status.f_frsize;
  volume.writable = (status.f_flag & ST_RDONLY) == 0 &&
                    faccessat(AT_FDCWD, path.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
  return true;
}

}  // namespace

bool VolumeList(std::vector<PlatVolume>& volumes) {
  volumes.clear();
  std::vector<std::string> paths;
  if (!VolumePaths(paths)) {
    return false;
  }
  std::set<std::string> seen;
  for (const std::string& path : paths) {
    PlatVolume volume;
    if (seen.insert(path).second && Measure(path, volume)) {
      volumes.push_back(volume);
    }
  }
  return true;
}

int VolumeAvailGet(uint64_t space, std::string& mountPath, unsigned& flags) {
  flags = 0;
  std::vector<PlatVolume> volumes;
  if (!VolumeList(volumes)) {
    return -1;
  }
  const PlatVolume* best = nullptr;
  bool anyWritable = false;
  for (const PlatVolume& volume : volumes) {
    anyWritable = anyWritable || volume.writable;
    if (volume.writable && volume.freeBytes >= space &&
        (best == nullptr || volume.freeBytes > best->freeBytes)) {
      best = &volume;
    }
  }
  flags = (volumes.empty() ? 0 : kVolumeExists) |
          (!volumes.empty() && !anyWritable ? kVolumeNoneWritable : 0);
  if (best == nullptr) {
    return 0;
  }
  mountPath = best->mountPath;
  return 1;
}
