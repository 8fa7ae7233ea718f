#include "convert/work_folder.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <optional>
#include <string_view>

#include "platform/unique_fd.h"
#include "util/number.h"
#include "util/private_folder.h"

namespace convert {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kLeastSpace = 16 << 20;
constexpr std::string_view kPieceStart = "slice-";
constexpr std::string_view kPieceEnd = ".ts";

// The number in the name of a piece.
std::optional<int> NumberOf(const std::string& name) {
  const bool isPiece = name.starts_with(kPieceStart) && name.ends_with(kPieceEnd);
  const size_t around = kPieceStart.size() + kPieceEnd.size();
  if (!isPiece || name.size() <= around) {
    return std::nullopt;
  }
  const auto number = LibOrvoQMX::ParseNumber(
      std::string_view(name).substr(kPieceStart.size(), name.size() - around));
  return number && *number <= std::numeric_limits<int>::max()
             ? std::optional(static_cast<int>(*number))
             : std::nullopt;
}

bool Sync(const std::string& path) {
  const orvo::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  return file.IsOpen() && fsync(file.Get()) == 0;
}

}  // namespace

bool WorkFolder::Make() const {
  Remove();
  return orvo::MakePrivateFolder(path_);
}

bool WorkFolder::Exists() const {
  return orvo::IsOwnFolder(path_);
}

void WorkFolder::Remove() const {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::map<int, std::string> WorkFolder::Pieces() const {
  std::map<int, std::string> pieces;
  std::error_code failure;
  for (const auto& entry : fs::directory_iterator(path_, failure)) {
    if (const auto number = NumberOf(entry.path().filename().string())) {
      pieces[*number] = entry.path().string();
    }
  }
  return pieces;
}

int WorkFolder::KeepCompletePieces() const {
  const std::map<int, std::string> pieces = Pieces();
  if (pieces.empty()) {
    return 0;
  }
  const auto& [number, path] = *pieces.rbegin();
  unlink(path.c_str());
  return number;
}

void WorkFolder::RemovePieces() const {
  for (const auto& [number, path] : Pieces()) {
    unlink(path.c_str());
  }
}

bool WorkFolder::Accept() const {
  return Sync(Joined()) && rename(Joined().c_str(), Result().c_str()) == 0 && Sync(path_);
}

bool WorkFolder::IsFull() const {
  struct statvfs volume {};
  return statvfs(path_.c_str(), &volume) == 0 &&
         uint64_t{volume.f_bavail} * volume.f_frsize < kLeastSpace;
}

}  // namespace convert
