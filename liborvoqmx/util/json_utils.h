// Reads and writes JSON files that several processes share.
//
// The lock is an advisory flock on the file itself: shared for readers, exclusive for writers. If
// the lock cannot be taken, the operation continues without it. A writer replaces the content in
// place, so the locked file stays the same file.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"

namespace LibMirevo {

// Parses a whole file into `value`. Returns false for an empty path (logs "Bad parameter"), a file
// that cannot be opened (logs nothing) and a file that is not JSON (logs it). `value` is then
// unspecified.
ORVO_API bool ReadJsonFromFile(const std::string& path, Json::Value& value);
ORVO_API bool ReadJsonFromFileWithoutLock(const std::string& path, Json::Value& value);

// Replaces the file's content by `value` on one line. Creates the file if it is missing. Returns
// false, with a log line, if the path is empty or the file cannot be written.
ORVO_API bool WriteJsonToFile(const std::string& path, const Json::Value& value);
ORVO_API bool WriteJsonToFileWithoutLock(const std::string& path, const Json::Value& value);

// Parses a text. Returns false for damaged input of any kind, endless nesting included. Never
// throws or crashes.
ORVO_API bool ParseJson(const std::string& text, Json::Value& value);

// Can a JSON text hold `text` unchanged? Only if its bytes are valid UTF-8.
ORVO_API bool IsJsonText(const std::string& text);

// `value` as one line with a newline at its end and sorted keys.
ORVO_API std::string FormatJson(const Json::Value& value);

}  // namespace LibMirevo
