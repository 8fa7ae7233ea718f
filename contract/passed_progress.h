// How the starter of a transcoder learns whether the film was made to its end.
#pragma once

namespace orvo {

// The environment variable with the number of an open memory file. The transcoder writes its
// progress there, instead of into a file of its own. Its last line is kProgressEnd if the film has
// come to its end; it is another one while the transcoder works, and after it was lost.
inline constexpr char kProgressVariable[] = "ORVO_PROGRESS";
inline constexpr char kProgressName[] = "orvo-progress";
inline constexpr char kProgressEnd[] = "progress=end\n";

}  // namespace orvo
