// The subtitle files that lie beside films, read into WebVTT's cues. All texts are UTF-8; damaged
// parts of a file are passed over, and what is no file of the format at all gives no cues.
#pragma once

#include <string_view>
#include <vector>

#include "webapi/subtitles/webvtt.h"

namespace webapi {

std::vector<Cue> ParseSrt(std::string_view file);

// Scripts of both versions, SSA and ASS.
std::vector<Cue> ParseScript(std::string_view file);

// Of a file in several languages, the one that comes first.
std::vector<Cue> ParseSami(std::string_view file);

// Reads a file by its format's ending ("srt", "ssa", "ass", "smi"; either case). Nothing for
// others.
using SubtitleParser = std::vector<Cue> (*)(std::string_view file);
SubtitleParser ParserFor(std::string_view ending);

}  // namespace webapi
