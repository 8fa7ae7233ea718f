// A file of a stream's directory that holds one word or one number, without a line end.
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

  // "" where the file is missing or empty.
  std::string Read() const;
  // The decimal number that the content begins with, 0 for any other content; nothing where the
  // file is missing or empty.
  std::optional<int64_t> Number() const;

  // False for an empty text, which is not written, and when the file cannot be opened.
  bool Write(const std::string& text) const;
  bool Write(int64_t number) const;
  // Leaves the file empty where there is one.
  void Clear() const;
  void Remove() const;

  // When it was last written; nothing where it is missing.
  std::optional<timespec> Written() const;

  // Waits for the exclusive lock on this file. It is made where it is missing.
  StreamLock Lock() const;
  bool IsLocked() const;

 private:
  std::string path_;
};

}  // namespace LibOrvoQMX
