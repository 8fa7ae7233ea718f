// Answering with a file.
#pragma once

#include <string>

#include "webapi/http/request.h"

namespace webapi {

// How long a client may keep what it got. Every file has a tag by which it may ask again.
inline constexpr char kAskAgain[] = "private, no-cache";
// The segments of a stream do not change while it is open.
inline constexpr char kKeepSegment[] = "private, max-age=600";
// A picture stands for one state of one film.
inline constexpr char kKeepPicture[] = "private, max-age=86400";

// Sends a file with its type, or the bytes of it that the request asks for, or word that the
// client's copy is still good. Where the web server has said that it does (the environment variable
// MIREVO_SENDFILE names the header), it is the one that reads the file. False, and nothing sent,
// when there is no such file.
bool SendFile(const Request& request, const std::string& path, const std::string& contentType,
              const char* cacheControl = kAskAgain);

// The headers of an answer whose length is not known yet.
void SendFileHeaders(const std::string& contentType);

}  // namespace webapi
