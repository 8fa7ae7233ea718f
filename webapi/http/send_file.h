// Answers a request with a file.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/media_file.h"
#include "webapi/http/answer.h"
#include "webapi/http/byte_range.h"
#include "webapi/http/request.h"

namespace webapi {

// How long a client may cache a file. A client can use the file's tag to ask whether its copy is
// still valid.
inline constexpr char kAskAgain[] = "private, no-cache";
// The segments of a stream do not change while it is open.
inline constexpr char kKeepSegment[] = "private, max-age=600";
// A picture belongs to one state of one film.
inline constexpr char kKeepPicture[] = "private, max-age=86400";

// Who reads and sends a file. The web server opens it some time after this program has ended, so
// what removes files must not wait for this program's end only.
enum class Sender { kWebServer, kThisProgram };

// Sends a file with its media type, or the requested bytes of it, or the answer that the client's
// copy is still valid. The web server sends it if it is the sender and the environment variable
// MIREVO_SENDFILE names the header for that; else this program does. It is for files that nobody
// but this service can put in their place. Returns false and sends nothing if there is no such
// file. `more` are further headers, each with its line end.
bool SendFile(const Request& request, const std::string& path, const std::string& contentType,
              const char* cacheControl = kAskAgain, const std::string& more = "",
              Sender sender = Sender::kWebServer);
// The same for an open file. This program always sends it itself: the web server would open the
// name again, which may lead elsewhere by then. Refuses if the client gets too many files already.
Answer SendFile(const Request& request, const orvo::MediaFile& file, const std::string& contentType,
                const char* cacheControl = kAskAgain);

// Sends a part of such a file in the same way, as a resource of its own.
Answer SendPart(const Request& request, const orvo::MediaFile& file, const ByteRange& part,
                const std::string& contentType, const char* cacheControl);

// Sends a text that belongs to this request alone.
Answer SendText(const Request& request, const std::string& contentType, const std::string& text);

// Sends the headers of an answer of unknown length.
void SendFileHeaders(const std::string& contentType, const std::string& more = "");

// An answer whose end is not known when it begins.
//
// If the environment variable MIREVO_CHUNKED is set, the web server decodes an answer in chunks
// (RFC 9112, 7.1), and breaks the connection to the client if the last one is missing. Otherwise
// the client takes all that has come for the whole.
class OpenAnswer {
 public:
  // Sends the headers of a successful answer.
  OpenAnswer(const std::string& contentType, const std::string& more);
  // Sends these headers, each with its line end.
  explicit OpenAnswer(const std::string& headers);

  // Sends the bytes of a file from `from` on, and moves `from`. Returns false if the client has
  // gone.
  bool Send(int file, off_t& from, off_t end) const;
  // Sends these bytes. Returns false if the client has gone.
  bool Send(std::string_view bytes) const;
  // The answer is whole.
  void Finish() const;

 private:
  bool BeginChunk(size_t size) const;

  bool isChunked_;
};

}  // namespace webapi
