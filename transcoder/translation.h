// Turns the transcoder's command line into one that stock FFmpeg understands.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "transcoder/engine_stream.h"
#include "transcoder/film_copy.h"
#include "transcoder/film_range.h"
#include "transcoder/fragment_cutter.h"
#include "transcoder/segment_cutter.h"

namespace orvo::transcoder {

// What a translation needs to know of the machine.
struct Surroundings {
  std::string executable;  // the stock FFmpeg, argv[0] of the result
  int progressFd = -1;     // an open descriptor for progress reports; below 0 for none
  // True when the machine can encode with the named encoder. Asked only about encoders that have a
  // replacement, so a command line without one costs nothing.
  std::function<bool(std::string_view encoder)> canEncode;
  // The device of a VA-API encoder that the machine has.
  std::function<std::string(std::string_view encoder)> nodeOf = [](std::string_view) {
    return "/dev/dri/renderD128";
  };
  // True when a seek in this film lands between key frames. Asked only when there is a seek or
  // sound is copied beside encoded pictures.
  std::function<bool(const std::string& film)> lacksIndex;
  // True when a seek by time lands anywhere in this film. Asked only about films without an index
  // that become segments.
  std::function<bool(const std::string& film)> clockJumps;
  // How the pictures of a film in PQ or HLG are coded. Asked only where pictures are encoded.
  std::function<std::optional<HighRange>(const std::string& film)> findHighRange =
      [](const std::string&) { return std::nullopt; };
  // True when FFmpeg has the named filter. Asked only about filters that a few films need.
  std::function<bool(std::string_view filter)> hasFilter = [](std::string_view) { return false; };
};

struct Translation {
  std::vector<std::string> command;       // the whole argument vector; empty when there is an error
  std::optional<SegmentPlan> segments;    // set when the output is to be cut into segments
  std::optional<FragmentPlan> fragments;  // or into fragments
  std::optional<StreamPlan> stream;  // the same output by way of this process, which can replace
                                     // the encoder in the middle; where one is an engine's
  std::optional<FilmCopy> copy;      // the same output without FFmpeg, where that may do
  std::string engine;                // the encoder, if it is one of a video engine
  bool isEngineReplaced = false;     // one was asked for, and software stands in for it
  std::vector<std::string> notes;    // one line for each thing that this machine cannot do
  std::string error;                 // why nothing can be run; empty otherwise
};

// Translates `arguments`, the command line without the program's name: options before "-i" belong
// to the input, those after it to the output, and the last argument is the output. An option that
// is not in the table is passed on as it is.
Translation Translate(const std::vector<std::string>& arguments, const Surroundings& surroundings);

}  // namespace orvo::transcoder
