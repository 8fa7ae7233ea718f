// Small file, process and text helpers of the streams.
#pragma once

#include <string>
#include <vector>

#include "platform/export.h"

namespace LibOrvoQMX {

// Looks at `path` as root. Present: true. Absent: looks again after every second until more than
// `timeoutSeconds` seconds have been slept (timeoutSeconds + 1 looks and seconds in all; one look
// and no sleep with 0), then false.
ORVO_API bool VerifyFileExist(const std::string& path, unsigned timeoutSeconds);

// The first 4096 bytes of a file up to its first zero byte; "" when it cannot be opened. Enough for
// the one-word and one-number files of a stream directory.
ORVO_API std::string ReadFile(const std::string& path);

// Replaces the file's content. False for an empty path or content (an empty text is never written)
// and when the file cannot be opened. A short write is not detected.
ORVO_API bool SaveFile(const std::string& path, const std::string& content);

// Sends SIGTERM and returns kill()'s result. Pids below 1, which would name process groups, are
// refused with -1.
ORVO_API int KillProcess(int pid);

// The pieces of `text` between any of the characters of `delimiters`; no empty pieces.
ORVO_API std::vector<std::string> StringExplode(const std::string& text,
                                                const std::string& delimiters);

// Decimal text.
ORVO_API std::string ToString(unsigned value);
// Six significant digits, no trailing zeros, an exponent for very large and very small values.
ORVO_API std::string ToString(float value);

}  // namespace LibOrvoQMX
