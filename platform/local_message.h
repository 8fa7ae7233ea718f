// Messages with open files between processes of one user on this machine.
//
// A message arrives whole or not at all. The other side of a connection is this process's user or
// root; connections of others are refused.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/export.h"
#include "platform/unique_fd.h"

namespace orvo {

inline constexpr size_t kLongestMessage = 65536;

struct LocalMessage {
  std::string text;
  std::vector<UniqueFd> files;  // at most kMostPassedFiles
};
inline constexpr size_t kMostPassedFiles = 8;

// Listens at this path, in place of a socket that an ended process has left there. Not open, with
// errno set, on failure; a path of more than 107 bytes is one.
ORVO_API UniqueFd ListenLocally(const std::string& path);

// The next connection; not open if none waits or its other side is a stranger.
ORVO_API UniqueFd AcceptLocally(const UniqueFd& listener);

// Connects without waiting. Not open, with errno set, if nobody listens, too many wait already, or
// the listener is a stranger.
ORVO_API UniqueFd ConnectLocally(const std::string& path);

// Sends a message that is not empty, without waiting. The files stay open here. Returns false, with
// errno set, on failure.
ORVO_API bool SendLocally(const UniqueFd& connection, std::string_view text,
                          const std::vector<int>& files = {});

// The next message. Nothing if none waits, at the end of the connection, and for a message that is
// longer or has more files than allowed.
ORVO_API std::optional<LocalMessage> ReceiveLocally(const UniqueFd& connection);

}  // namespace orvo
