// The media types of the files that the service sends as they are, by the endings of their names.
#pragma once

#include <string>

namespace webapi {

// Is this the name of a file that lies beside films: a subtitle, a note or a picture?
bool IsCompanion(const std::string& name);

// The type of a film, of music or of such a file; "application/octet-stream" if programs ask for
// none.
std::string MediaTypeOf(const std::string& name);

}  // namespace webapi
