// Pictures of films: posters for lists, thumbnails for the seek bar.
#pragma once

#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// Sends a JPEG of a picture from the film that is not black, "width" pixels wide; for music, of its
// cover.
Answer SendPoster(const Request& request);

// Sends a JPEG of the picture near "time" (seconds). One picture covers ten seconds of the film.
Answer SendThumbnail(const Request& request);

}  // namespace webapi
