// A file in a stream's directory that holds one word or one number, without a line end.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "platform/export.h"
#include "state/stream_lock.h"

namespace LibOrvoQMX {

class ORVO_API StateFile {
 public:
  explicit StateFile(std::string path);

  const std::string& Path() const { return path_; }

  // The content; "" if the file is missing or empty.
  std::string Read() const;
  // The same, but nothing if the file is there and cannot be read, for example for want of memory.
  // Decisions that rely on the file being absent need to know the difference.
  std::optional<std::string> TryRead() const;
  // The decimal number at the beginning of the content, or 0 for any other content. Returns nothing
  // if the file is missing or empty.
  std::optional<int64_t> Number() const;

  // Replaces the content of the same file, which another process may have locked. Empties it first,
  // so readers may see nothing. Returns false if `text` is empty, which is never written, or the
  // file cannot be opened.
  bool Write(const std::string& text) const;
  bool Write(int64_t number) const;
  // Replaces the file in one step: readers see the old content or the new one. For files that
  // nobody locks. Returns false, and leaves the old content, on any failure.
  bool Replace(const std::string& text) const;
  bool Replace(int64_t number) const;
  // Empties the file if it exists.
  void Clear() const;
  void Remove() const;

  // The time of the last write; nothing if the file is missing.
  std::optional<timespec> Written() const;

  // Waits for the exclusive lock on this file. Creates the file if it is missing.
  StreamLock Lock() const;
  bool IsLocked() const;

 private:
  std::string path_;
};

}  // namespace LibOrvoQMX
