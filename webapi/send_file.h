// Answering with a file.
#pragma once

#include <string>

namespace webapi {

// Sends a whole file with its type. Where the web server has said that it does (the environment
// variable MIREVO_SENDFILE names the header), it is the one that reads the file. False, and nothing
// sent, when there is no such file.
bool SendFile(const std::string& path, const std::string& contentType, bool headersOnly);

// The headers of an answer whose length is not known yet.
void SendFileHeaders(const std::string& contentType);

}  // namespace webapi
