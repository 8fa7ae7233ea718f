// Whole reads and writes.
#pragma once

#include <sys/types.h>

#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// Writes all of `content`, despite interruptions and short writes. False, with errno set, after a
// write error.
ORVO_API bool WriteAll(int fd, std::string_view content);

// Replaces the file `path` by one with this content and mode in one step: a reader sees the old
// file or the new one. False if the new file cannot be written; the old file stays.
ORVO_API bool ReplaceFile(const std::string& path, std::string_view content, mode_t mode = 0644);

// The content of a regular file that belongs to this process's user and that no other user can
// write. It is for places where others can put files: it follows no link and does not wait for a
// pipe. Nothing for any other file, and for one longer than `maxBytes`.
ORVO_API std::optional<std::string> ReadOwnFile(const std::string& path, size_t maxBytes);

// Sets the file's modification time to now; creates the file if it does not exist. It does not
// truncate the file, because that can wait for the disk.
ORVO_API bool TouchFile(const std::string& path);

// No file of ours is longer.
inline constexpr size_t kMostBytes = 64 << 20;

// Appends the rest of `stream` to `content`. False on a read error, and for more than `maxBytes`
// bytes, of which it has appended some.
ORVO_API bool ReadAll(std::istream& stream, std::string& content, size_t maxBytes = kMostBytes);
// The content of a file; "" if it cannot be read as a whole or is longer than kMostBytes.
ORVO_API std::string ReadText(const std::string& path);

// A pipe whose ends an exec closes. They never get the numbers of the standard streams, which in a
// process without those would be free: whatever becomes "/dev/null" later would be the pipe. False,
// with errno set, when there is none.
ORVO_API bool OpenPipe(UniqueFd& readEnd, UniqueFd& writeEnd);

// Closes all descriptors but the standard streams and these, which may include negative numbers.
ORVO_API void CloseAllBut(std::vector<int> kept);

// Redirects standard input, output and error to "/dev/null". For a process that outlives its
// request: the client would otherwise wait for the end of its output.
ORVO_API void DetachStandardStreams();

}  // namespace orvo
