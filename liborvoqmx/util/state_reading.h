// Reads state files so that a file that is not there differs from one that cannot be read now, for
// want of memory or descriptors. A program that took the second for the first would write an empty
// state over the file, or decide as if nothing ran.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "platform/export.h"

namespace orvo {

// As ReadOwnFile, but "" if there is no file at `path`. Nothing if it cannot be read, or is not a
// file of this user of that length.
ORVO_API std::optional<std::string> ReadIfThere(const std::string& path, size_t maxBytes);

enum class JsonReading {
  kRead,
  kAbsent,
  kUnreadable,
  kNoJson,  // logged
};
// Reads the JSON file at `path` without a lock. `value` changes only if the result is kRead.
ORVO_API JsonReading ReadStateJson(const std::string& path, Json::Value& value);

}  // namespace orvo
