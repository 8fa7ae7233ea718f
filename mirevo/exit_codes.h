// The program's exit statuses; the numbers are those of sysexits(3).
#pragma once

namespace mirevo {

inline constexpr int kOk = 0;
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 64;
inline constexpr int kNoInput = 66;      // the file or folder does not exist
inline constexpr int kUnavailable = 69;  // no service runs, or it is busy
inline constexpr int kNoPermission = 77;

}  // namespace mirevo
