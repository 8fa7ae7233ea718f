// The ready FFmpeg: stock FFmpeg's program that has loaded its libraries and waits at its first
// instruction. For each run it forks, and the copy goes on with the run's command line
// (fork_server.h, ready_text.h). To load the libraries takes FFmpeg 70 to 100 ms, to fork two.
//
// The program is the system's own. A library of this system is loaded into it before all others
// and stands between its start and its main function (ready_program.cpp).
#pragma once

namespace orvo::transcoder {

// Replaces this process by the ready FFmpeg. Returns only on failure, with the exit code.
int BecomeReady();

}  // namespace orvo::transcoder
