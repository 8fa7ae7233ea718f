// MD5 checksums as lower-case hexadecimal text. They serve as names, not as protection.
#pragma once

#include <string>

#include "platform/export.h"

namespace LibMirevo {

// 32 hexadecimal digits: the digest of the text's bytes.
ORVO_API std::string GetMD5(const std::string& text);

// The digest of a file's content; "", with a log line, if it cannot be read.
ORVO_API std::string GetFileMD5(const std::string& path);

}  // namespace LibMirevo
