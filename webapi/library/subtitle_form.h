// The form of a film's subtitles: what a player needs to show them.
#pragma once

#include <string>

namespace webapi {

enum class SubtitleForm {
  kNone,     // no player that this service knows shows them
  kText,     // shown as WebVTT without a loss
  kAss,      // a script with styles, which WebVTT keeps in part
  kPicture,  // pictures; there is no text
};

// The word of the web API: "text", "ass" or "picture"; "" for kNone.
const char* WordOf(SubtitleForm form);

// The form of a track with this codec (the probe's name).
SubtitleForm FormOfCodec(const std::string& codec);

// The form of a file beside the film, by the ending of its name ("srt", "ASS").
SubtitleForm FormOfFile(const std::string& ending);

}  // namespace webapi
