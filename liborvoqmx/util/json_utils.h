// JSON files that several processes read and write.
//
// The lock is an advisory flock on the file itself: shared for readers, exclusive for writers.
// Where it cannot be taken the operation goes on without it. A writer replaces the content in
// place, so that the locked file stays the same file.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/export.h"

namespace LibMirevo {

// Parses a whole file into `value`. False for an empty path ("Bad parameter" is logged), a file
// that cannot be opened (nothing is logged) and one that is not JSON (logged); `value` is then
// unspecified.
ORVO_API bool ReadJsonFromFile(const std::string& path, Json::Value& value);
ORVO_API bool ReadJsonFromFileWithoutLock(const std::string& path, Json::Value& value);

// Replaces the file's content by `value` on one line, creating it if it is missing. False, with a
// log line, for an empty path and when the file cannot be written.
ORVO_API bool WriteJsonToFile(const std::string& path, const Json::Value& value);
ORVO_API bool WriteJsonToFileWithoutLock(const std::string& path, const Json::Value& value);

// Parses a text. Damaged input of any kind, bottomless nesting included, is false and nothing
// worse.
ORVO_API bool ParseJson(const std::string& text, Json::Value& value);

// Can a JSON text hold `text` as it is? Not where its bytes are no UTF-8.
ORVO_API bool IsJsonText(const std::string& text);

// `value` as one line with its newline, keys sorted.
ORVO_API std::string FormatJson(const Json::Value& value);

}  // namespace LibMirevo
