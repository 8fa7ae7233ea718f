// The process that has FFmpeg's libraries loaded and forks for each copy. To load them takes longer
// than to copy most segments.
//
// A connection is one copy (platform/local_message.h). The client sends the work as text
// (copy_text.h) with its files (copy_client.h). The answers are one number each: kCopyBegun, and at
// the end the exit code. The copy is killed when the client shuts its side of the connection down
// or ends. Each copy has the confinement and the limits that it has without
// this process, and ends with this process.
#pragma once

namespace orvo::transcoder {

inline constexpr int kCopyBegun = -1;

// Loads the libraries, listens at kCopiesSocket and serves until the process is killed. Returns
// only on failure, with the exit code.
int ServeCopies();

}  // namespace orvo::transcoder
