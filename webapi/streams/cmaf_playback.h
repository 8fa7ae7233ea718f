// Plays a CMAF presentation.
#pragma once

#include <string>

#include "metadata/video_metadata.h"
#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The profile of such a stream: the client's codecs decide instead.
inline constexpr char kCmafProfile[] = "cmaf";

// The parameter of `open`, and the member of its answer, for the texts of playlists.
inline constexpr char kCmafPlaylists[] = "playlists";

// What is wrong with the request's parameters for this kind; "" if nothing is.
std::string CmafComplaint(const Request& request);

// Makes the directory and the record of such a stream, with the id `streamId` or, for "", a new
// one. Returns the id; the library's error word if there is no space.
std::string InitCmaf(const LibOrvoQMX::VideoMetaData& film, const std::string& streamId);

// Plans the segments of a newly opened stream, and adds their description to the answer. A failure
// leaves no directory.
Answer PrepareCmaf(const Ticket& ticket, Json::Value& data);

// Adds the texts that a player asks for first, by their addresses, if the request wants them:
// "hls", the playlist of all renditions and those of the first ones, or "dash", the manifest.
// `data` has the addresses "url" and "dash".
void AddCmafPlaylists(const Request& request, const Ticket& ticket, Json::Value& data);

// Sends a playlist, the manifest, the header of the request's "rendition", or its "segment", which
// may still be growing.
Answer PlayCmaf(const Request& request, const Ticket& ticket);

// Starts the runs of the renditions that a player begins with at this second, and adds their
// headers to the answer.
void StartCmaf(const Ticket& ticket, double second, Json::Value& data);

void CloseCmaf(const std::string& streamId);

// Why the stream does not offer the film's own pictures, as one sentence; "" if it does, or if
// there are none.
std::string WhyCmafIsNotCopied(const Ticket& ticket);

// The second of the film that the last requested segment of any rendition begins at.
double CmafPosition(const Ticket& ticket);

}  // namespace webapi
