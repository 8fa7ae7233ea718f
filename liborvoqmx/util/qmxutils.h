// Small helpers for files, processes and texts.
#pragma once

#include <string>
#include <vector>

#include "platform/export.h"

namespace LibOrvoQMX {

// Checks as root whether `path` exists. Returns true if it does. Otherwise checks again after each
// second, until more than `timeoutSeconds` seconds have passed, and then returns false. That is
// timeoutSeconds + 1 checks and seconds in all; with 0 it is one check and no wait.
ORVO_API bool VerifyFileExist(const std::string& path, unsigned timeoutSeconds);

// The first 4096 bytes of a file, up to its first zero byte; "" if it cannot be opened. This is
// enough for the files of a stream directory that hold one word or number.
ORVO_API std::string ReadFile(const std::string& path);

// Replaces the file's content. Returns false if the path or the content is empty (an empty text is
// never written) or the file cannot be opened. Does not detect a short write.
ORVO_API bool SaveFile(const std::string& path, const std::string& content);

// Sends SIGTERM and returns the result of kill(). A stopped process continues, so that it receives
// the signal. Returns -1 for a pid below 1, which would name a process group.
ORVO_API int KillProcess(int pid);

// Splits `text` at each character of `delimiters`. Leaves out empty pieces.
ORVO_API std::vector<std::string> StringExplode(const std::string& text,
                                                const std::string& delimiters);

// Decimal text.
ORVO_API std::string ToString(unsigned value);
// Six significant digits, no trailing zeros, an exponent for very large and very small values.
ORVO_API std::string ToString(float value);

}  // namespace LibOrvoQMX
