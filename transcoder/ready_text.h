// A run of FFmpeg for the ready FFmpeg, as text.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orvo::transcoder {

struct ReadyRun {
  std::vector<int> numbers;  // the program's descriptors, in the order of the files beside the text
  std::vector<std::string> command;  // argv, the first one included
};

std::string TextOf(const ReadyRun& run);

// Reads such a text. Nothing if it has another form: a number is used twice, or there is no
// command.
std::optional<ReadyRun> ParseReadyRun(const std::string& text);

}  // namespace orvo::transcoder
