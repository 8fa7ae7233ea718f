// Options that belong to single encoders. FFmpeg warns about one that the encoder does not know, or
// ends with an error.
#pragma once

#include <string_view>

namespace orvo::transcoder {

// Does this encoder take the option? All encoders take an option that belongs to none. `encoder`
// may be "copy", which takes no encoder's option, or empty for the container's usual one, which is
// not known here and takes all.
bool TakesOption(std::string_view encoder, std::string_view option);

}  // namespace orvo::transcoder
