// What a sealed ticket tells a box: how a stream was opened.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace webapi {

struct Opening {
  int64_t issued = 0;  // seconds since the epoch
  uint64_t film = 0;   // checksum of the film's state
  uint64_t plan = 0;   // checksum of the stream's plan
  // Texts by their names: parameters of the opening, and the ones below.
  std::map<std::string, std::string> words;
};

// The names of texts that cannot be parameters of a client.
inline constexpr char kPathWord[] = "path";
inline constexpr char kKindWord[] = "kind";
inline constexpr char kProfileWord[] = "profile";

// The opening in as few bytes as possible, because each line of a playlist carries them. Words
// that are empty or have other names are left out.
std::string Pack(const Opening& opening);

// Returns nothing for bytes that Pack does not make.
std::optional<Opening> Unpack(std::string_view bytes);

// 64 bits of a text's MD5 checksum.
uint64_t ChecksumOf(const std::string& text);

}  // namespace webapi
