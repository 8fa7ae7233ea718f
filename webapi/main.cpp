// The request program: one web API call, run by the web server as CGI.
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <string>
#include <string_view>

#include "util/state_roots.h"
#include "webapi/access/basic_login.h"
#include "webapi/access/first_start.h"
#include "webapi/access/identity.h"
#include "webapi/access/login.h"
#include "webapi/access/origin.h"
#include "webapi/access/sealed_ticket.h"
#include "webapi/choice/film_info.h"
#include "webapi/conversions/conversions.h"
#include "webapi/conversions/rules.h"
#include "webapi/http/answer.h"
#include "webapi/http/deadline.h"
#include "webapi/http/leaving.h"
#include "webapi/http/request.h"
#include "webapi/library/file_index.h"
#include "webapi/library/film_card.h"
#include "webapi/library/fonts.h"
#include "webapi/library/history.h"
#include "webapi/library/media_library.h"
#include "webapi/library/picture.h"
#include "webapi/library/previews.h"
#include "webapi/library/search.h"
#include "webapi/management/settings.h"
#include "webapi/streams/status.h"
#include "webapi/streams/streaming.h"
#include "webapi/subtitles/subtitle.h"
#include "webapi/television/television.h"

namespace {

using webapi::Answer;
using webapi::Request;
using webapi::Right;

// The time until an answer begins, in seconds (http/deadline.h).
constexpr unsigned kPlainSeconds = 30;    // locks are waited for 10 s
constexpr unsigned kFilmSeconds = 60;     // a place 15 s, a probe 10 s, a picture 10 s
constexpr unsigned kStreamSeconds = 300;  // twice: a transcoder 60 s, its first bytes 30 s, a lock
constexpr unsigned kTrackSeconds = 150;   // two queues of 60 s; the conversion has its own time

struct Call {
  const char* api;
  const char* method;
  Answer (*handle)(const Request& request);
  Right right = Right::kAccount;
  bool isPost = false;  // accepts parameters only from the body, never from the address
  unsigned seconds = kPlainSeconds;
  // Goes on without its client. A page sends such a call while it is being left.
  bool outlivesClient = false;
  // May name any host: it tells nothing that a page of another server could use.
  bool isForAnyHost = false;
  // Changes something that others can name, too.
  bool isChange = false;
};
constexpr std::array kCalls = {
    Call{"ORVO.Mirevo2.Library", "list", webapi::ListFolder},
    Call{"ORVO.Mirevo2.Library", "info", webapi::DescribeFilm, Right::kAccount, false,
         kFilmSeconds},
    Call{"ORVO.Mirevo2.Library", "search", webapi::SearchFilms, Right::kAccount, false,
         kFilmSeconds},
    Call{"ORVO.Mirevo2.Library", "card", webapi::DescribeCard, Right::kAccount, false,
         kFilmSeconds},
    Call{"ORVO.Mirevo2.Library", "poster", webapi::SendPoster, Right::kAccount, false,
         kFilmSeconds},
    Call{"ORVO.Mirevo2.Library", "thumbnail", webapi::SendThumbnail, Right::kAccount, false,
         kFilmSeconds},
    Call{"ORVO.Mirevo2.Library", "font", webapi::SendFont, Right::kAccount, false, kFilmSeconds},
    Call{"ORVO.Mirevo2.Library", "previews", webapi::SendPreviews},
    Call{"ORVO.Mirevo2.Streaming", "open", webapi::OpenStream, Right::kAccount, false,
         kFilmSeconds},
    Call{"ORVO.Mirevo2.Streaming", "stream", webapi::PlayStream, Right::kLink, false,
         kStreamSeconds},
    Call{"ORVO.Mirevo2.Streaming", "close", webapi::CloseStream, Right::kAccount, false,
         kPlainSeconds, true},
    Call{"ORVO.Mirevo2.Streaming", "state", webapi::DescribeStreamState},
    Call{"ORVO.Mirevo2.Subtitle", "get", webapi::GetSubtitle, Right::kLink, false, kTrackSeconds},
    Call{"ORVO.Mirevo2.History", "list", webapi::ListHistory},
    Call{"ORVO.Mirevo2.History", "get", webapi::GetHistory},
    Call{"ORVO.Mirevo2.History", "save", webapi::SaveHistory, Right::kAccount, true, kPlainSeconds,
         true},
    Call{"ORVO.Mirevo2.History", "remove", webapi::RemoveHistory, Right::kAccount, true,
         kPlainSeconds, true},
    Call{"ORVO.Mirevo2.Conversion", "add", webapi::AddConversion, Right::kAccount, false,
         kFilmSeconds, false, false, true},
    Call{"ORVO.Mirevo2.Conversion", "list", webapi::ListConversions},
    Call{"ORVO.Mirevo2.Conversion", "remove", webapi::RemoveConversion, Right::kAccount, false,
         kPlainSeconds, false, false, true},
    Call{"ORVO.Mirevo2.Conversion", "get", webapi::GetConversion},
    Call{"ORVO.Mirevo2.Conversion", "add_rule", webapi::AddConversionRule, Right::kOwner, true},
    Call{"ORVO.Mirevo2.Conversion", "list_rules", webapi::ListConversionRules, Right::kOwner},
    Call{"ORVO.Mirevo2.Conversion", "remove_rule", webapi::RemoveConversionRule, Right::kOwner,
         true},
    Call{"ORVO.Mirevo2.Status", "get", [](const Request&) { return webapi::DescribeStatus(); },
         Right::kOwner},
    Call{"ORVO.Mirevo2.Status", "health", webapi::DescribeHealth, Right::kAnyone, false,
         kPlainSeconds, false, true},
    Call{"ORVO.Mirevo2.Settings", "get", webapi::DescribeSettings, Right::kManager},
    Call{"ORVO.Mirevo2.Settings", "add_folder", webapi::AddMediaFolder, Right::kManager, true},
    Call{"ORVO.Mirevo2.Settings", "remove_folder", webapi::RemoveMediaFolder, Right::kManager,
         true},
    Call{"ORVO.Mirevo2.Settings", "add_account", webapi::AddAccount, Right::kManager, true},
    Call{"ORVO.Mirevo2.Settings", "remove_account", webapi::RemoveAccount, Right::kManager, true},
    Call{"ORVO.Mirevo2.Settings", "set_password", webapi::SetAccountPassword, Right::kManager,
         true},
    Call{"ORVO.Mirevo2.Settings", "set_roots", webapi::SetAccountRoots, Right::kManager, true},
    Call{"ORVO.Mirevo2.Settings", "set_hardware", webapi::SetHardware, Right::kManager, true},
    Call{"ORVO.Mirevo2.Settings", "set_limit", webapi::SetLimit, Right::kManager, true},
    Call{"ORVO.Mirevo2.Settings", "clear_cache", webapi::ClearCache, Right::kManager, true},
    Call{"ORVO.Mirevo2.Auth", "begin", webapi::BeginService, Right::kAnyone, true},
    Call{"ORVO.Mirevo2.Auth", "login", webapi::LogIn, Right::kAnyone, true},
    Call{"ORVO.Mirevo2.Auth", "logout", webapi::LogOut, Right::kAnyone, true, kPlainSeconds, true},
    Call{"ORVO.Mirevo2.Auth", "who", webapi::DescribeCaller, Right::kAnyone},
};

// The parameters that a call may always have in its address. A session may stand there for players
// that know no other way.
constexpr std::array<std::string_view, 4> kInAddress = {"api", "version", "method", "_sid"};

// Passwords and positions do not belong in logs.
bool IsAllInBody(const Request& request) {
  const auto& names = request.NamesInAddress();
  return std::all_of(names.begin(), names.end(), [](const std::string& name) {
    return std::find(kInAddress.begin(), kInAddress.end(), name) != kInAddress.end();
  });
}

// Makes the call if the caller has the right.
Answer Make(const Call& call, Request& request) {
  if (!call.outlivesClient) {
    webapi::EndWithClient();
  }
  if (call.isPost && request.Method() != "POST") {
    return Answer::Failure(webapi::kMethodNotAllowed, "This call needs POST.")
        .AddHeader("Allow", "POST, OPTIONS");
  }
  if (call.isPost && !IsAllInBody(request)) {
    return Answer::Failure(webapi::kBadRequest,
                           "The parameters of this call must be in the body, not in the address.");
  }
  if (auto refusal = call.isChange ? webapi::RefuseHiddenPage(request) : std::nullopt) {
    return *refusal;
  }
  webapi::SetDeadline(call.seconds);
  if (auto refusal = webapi::RefuseSealedTicket(request)) {
    return *refusal;
  }
  request.SetCaller(webapi::FindCaller(request, call.right));
  const webapi::Caller& caller = request.MadeBy();
  Answer refusal = Answer::Failure(webapi::kInternal);
  if (!webapi::HasRight(caller, call.right, refusal)) {
    return refusal;
  }
  if (!caller.roots.empty()) {
    webapi::LimitMediaRoots(caller.roots);
  }
  return call.handle(request);
}

// The call that a request names; null if there is none.
const Call* CallOf(const Request& request) {
  const auto found = std::find_if(kCalls.begin(), kCalls.end(), [&](const Call& call) {
    return request.Text("api") == call.api && request.Text("method") == call.method;
  });
  return found == kCalls.end() ? nullptr : found;
}

Answer Dispatch(Request& request) {
  if (request.Text("version") != "1") {
    return Answer::Failure(webapi::kBadRequest, "This server speaks version 1 of the API.");
  }
  const Call* const call = CallOf(request);
  return call != nullptr ? Make(*call, request)
                         : Answer::Failure(webapi::kBadRequest, "There is no such API method.");
}

bool IsRead(const Request& blank) {
  return blank.Method() == "GET" || blank.Method() == "HEAD";
}

// Balancers ask boxes by addresses of their own.
bool IsForAnyHost(const Request& blank) {
  std::string ignored;
  const auto request = IsRead(blank) ? Request::Read(ignored) : std::nullopt;
  const Call* const call = request ? CallOf(*request) : nullptr;
  return call != nullptr && call->isForAnyHost;
}

// The index has neither calls nor parameters. Programs that read it bring their login along.
Answer ServeIndex(Request request) {
  if (!IsRead(request)) {
    return Answer::Failure(webapi::kMethodNotAllowed, "The files can only be read.")
        .AddHeader("Allow", "GET, HEAD, OPTIONS");
  }
  webapi::EndWithClient();
  webapi::SetDeadline(kFilmSeconds);
  Answer refusal = Answer::Failure(webapi::kInternal);
  const auto caller = webapi::FindCallerByHeader(request, refusal);
  if (!caller) {
    return refusal;
  }
  request.SetCaller(*caller);
  if (!caller->roots.empty()) {
    webapi::LimitMediaRoots(caller->roots);
  }
  return webapi::SendIndex(request);
}

// Neither has what televisions ask for. They do not log in: an owner has let them in.
Answer ServeTelevisions(const Request& request) {
  if (!IsRead(request)) {
    return Answer::Failure(webapi::kMethodNotAllowed, "The films can only be read.")
        .AddHeader("Allow", "GET, HEAD, OPTIONS");
  }
  webapi::EndWithClient();
  return webapi::ServeTelevision(request);
}

Answer Serve(const Request& blank) {
  const std::string method = blank.Method();
  if (auto refusal = webapi::RefuseStranger(blank); refusal && !IsForAnyHost(blank)) {
    return *refusal;
  }
  webapi::SendOriginHeaders(blank);
  if (method == "OPTIONS") {
    return webapi::DescribeOptions(blank);
  }
  if (!IsRead(blank) && method != "POST") {
    return Answer::Failure(webapi::kMethodNotAllowed, "There is no such method.")
        .AddHeader("Allow", "GET, HEAD, POST, OPTIONS");
  }
  if (const std::string problem = orvo::StateProblem(); !problem.empty()) {
    return Answer::Failure(webapi::kInternal, problem);
  }
  if (blank.Program() == webapi::kIndexProgram) {
    return ServeIndex(blank);
  }
  if (blank.Program() == webapi::kTelevisionProgram) {
    return ServeTelevisions(blank);
  }
  std::string error;
  auto request = Request::Read(error);
  return request ? Dispatch(*request) : Answer::Failure(webapi::kBadRequest, error);
}

}  // namespace

int main() {
  webapi::OutliveClient();  // until the call is known; some web servers do it before
  openlog("mirevo", LOG_PID, LOG_USER);
  // A web server may start this program with these signals ignored. A request must end when its
  // client is gone.
  signal(SIGPIPE, SIG_DFL);
  signal(SIGTERM, SIG_DFL);
  signal(SIGALRM, SIG_DFL);
  webapi::SetDeadline(kPlainSeconds);
  const Request blank;
  Serve(blank).Send(blank.Method() == "HEAD");
  return 0;
}
