// What a probe in a process of its own tells of a film, as bytes.
//
// JSON as a text would not do: it loses the kinds of numbers and tags that are not UTF-8.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace LibOrvoQMX {

ORVO_API std::string EncodeProbeMessage(const Json::Value& value);

// Nothing for bytes that are no whole message: the process that wrote them has read a film, so they
// may be anything.
ORVO_API std::optional<Json::Value> DecodeProbeMessage(std::string_view bytes);

}  // namespace LibOrvoQMX
