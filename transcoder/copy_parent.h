// The process that has FFmpeg's libraries loaded and forks for each copy (fork_server.h). To load
// them takes longer than to copy most segments.
//
// The client sends the work as text (copy_text.h) with its files. Each copy has the
// confinement and the limits that it has without this process.
#pragma once

namespace orvo::transcoder {

// Loads the libraries, listens at kCopiesSocket and serves until the process is killed. Returns
// only on failure, with the exit code.
int ServeCopies();

}  // namespace orvo::transcoder
