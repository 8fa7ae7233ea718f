// Reads the subtitle files beside films into WebVTT cues. All texts are UTF-8. Damaged parts of a
// file are skipped; a file in another format gives no cues.
#pragma once

#include <string_view>
#include <vector>

#include "webapi/subtitles/webvtt.h"

namespace webapi {

std::vector<Cue> ParseSrt(std::string_view file);

// Scripts of both versions, SSA and ASS.
std::vector<Cue> ParseScript(std::string_view file);

// In a file with several languages, the first language is used.
std::vector<Cue> ParseSami(std::string_view file);

// Finds the parser for a file ending ("srt", "ssa", "ass", "smi"; in upper or lower case). Null for
// other endings.
using SubtitleParser = std::vector<Cue> (*)(std::string_view file);
SubtitleParser ParserFor(std::string_view ending);

}  // namespace webapi
