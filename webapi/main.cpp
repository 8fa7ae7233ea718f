// The request program: one web API call, run by the web server as CGI.
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "webapi/answer.h"
#include "webapi/film_card.h"
#include "webapi/film_info.h"
#include "webapi/media_library.h"
#include "webapi/picture.h"
#include "webapi/request.h"
#include "webapi/search.h"
#include "webapi/status.h"
#include "webapi/streaming.h"
#include "webapi/subtitle.h"

namespace {

using webapi::Answer;
using webapi::Request;

struct Call {
  const char* api;
  const char* method;
  Answer (*handle)(const Request& request);
};
constexpr std::array kCalls = {
    Call{"ORVO.Mirevo2.Library", "list",
         [](const Request& request) { return webapi::ListFolder(request.Text("path")); }},
    Call{"ORVO.Mirevo2.Library", "info",
         [](const Request& request) { return webapi::DescribeFilm(request.Text("path")); }},
    Call{"ORVO.Mirevo2.Library", "search", webapi::SearchFilms},
    Call{"ORVO.Mirevo2.Library", "card", webapi::DescribeCard},
    Call{"ORVO.Mirevo2.Library", "poster", webapi::SendPoster},
    Call{"ORVO.Mirevo2.Library", "thumbnail", webapi::SendThumbnail},
    Call{"ORVO.Mirevo2.Streaming", "open", webapi::OpenStream},
    Call{"ORVO.Mirevo2.Streaming", "stream", webapi::PlayStream},
    Call{"ORVO.Mirevo2.Streaming", "close", webapi::CloseStream},
    Call{"ORVO.Mirevo2.Subtitle", "get", webapi::GetSubtitle},
    Call{"ORVO.Mirevo2.Status", "get", [](const Request&) { return webapi::DescribeStatus(); }},
};

Answer Dispatch(const Request& request) {
  if (request.Text("version") != "1") {
    return Answer::Failure(webapi::kBadRequest, "This server speaks version 1 of the API.");
  }
  for (const Call& call : kCalls) {
    if (request.Text("api") == call.api && request.Text("method") == call.method) {
      return call.handle(request);
    }
  }
  return Answer::Failure(webapi::kBadRequest, "There is no such API method.");
}

Answer Serve() {
  std::string error;
  const auto request = Request::Read(error);
  return request ? Dispatch(*request) : Answer::Failure(webapi::kBadRequest, error);
}

}  // namespace

int main() {
  openlog("mirevo", LOG_PID, LOG_USER);
  // A web server may hand these down ignored. A request has nothing to do once its client is gone.
  signal(SIGPIPE, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  const char* const method = getenv("REQUEST_METHOD");
  Serve().Send(method != nullptr && std::string(method) == "HEAD");
  return 0;
}
