// Texts of a film's metadata document as they may stand in playlists.
#pragma once

#include <json/value.h>

#include <string>

namespace LibOrvoQMX {

// A member that is a text; "" for any other.
std::string TextOf(const Json::Value& object, const char* key);

// A text for viewers. Line ends and quotes have no place in playlists. "" for a text that is very
// long or not UTF-8.
std::string PlainText(std::string text);

}  // namespace LibOrvoQMX
