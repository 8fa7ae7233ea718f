// Whole reads and writes.
#pragma once

#include <sys/types.h>

#include <istream>
#include <optional>
#include <string>
#include <string_view>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

// Writes all of `content`, through interruptions and short writes. False, with errno set, when the
// descriptor takes no more.
ORVO_API bool WriteAll(int fd, std::string_view content);

// Gives the file `path` this content and mode all at once: a reader sees the old or the new file.
// False when it cannot be written; the old one stays.
ORVO_API bool ReplaceFile(const std::string& path, std::string_view content, mode_t mode = 0644);

// The content of a plain file that this process's own user has and nobody else may write, for
// places where others may put something else: links are not followed, pipes not waited for. Nothing
// when it is anything else, or longer than `maxBytes`.
ORVO_API std::optional<std::string> ReadOwnFile(const std::string& path, size_t maxBytes);

// Sets the file's modification time to now, creating it where it is missing. Writes nothing:
// emptying a file that has content can wait for the disk.
ORVO_API bool TouchFile(const std::string& path);

// Appends what is left of `stream` to `content`. False on a read error.
ORVO_API bool ReadAll(std::istream& stream, std::string& content);

// A pipe whose ends an exec closes. They never get the numbers of the standard streams, which in a
// process without those would be free: whatever becomes "/dev/null" later would be the pipe. False,
// with errno set, when there is none.
ORVO_API bool OpenPipe(UniqueFd& readEnd, UniqueFd& writeEnd);

// Standard input, output and error become "/dev/null". For a process that outlives the request
// whose client reads them.
ORVO_API void DetachStandardStreams();

}  // namespace orvo
