#include "webapi/access/origin.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/io.h"
#include "util/lower_case.h"
#include "util/qmxutils.h"

namespace webapi {
namespace {

constexpr char kUsualHosts[] = "localhost *";
constexpr char kHiddenOrigin[] = "null";
constexpr char kMethods[] = "GET, HEAD, POST, OPTIONS";

std::vector<std::string> ListIn(const char* variable, const char* otherwise) {
  const char* const text = secure_getenv(variable);
  return LibOrvoQMX::StringExplode(text != nullptr ? text : otherwise, " ");
}

struct Host {
  std::string name;
  std::string port;  // "" for none
};

Host Split(const std::string& authority) {
  const auto colon = authority.rfind(':');
  const bool hasPort =
      colon != std::string::npos && authority.find(']', colon) == std::string::npos;
  return hasPort ? Host{authority.substr(0, colon), authority.substr(colon + 1)}
                 : Host{authority, ""};
}

// A numeric address cannot be redirected, unlike a name.
bool IsAddress(const std::string& name) {
  in_addr four{};
  in6_addr six{};
  const bool isBracketed = name.size() > 2 && name.front() == '[' && name.back() == ']';
  return isBracketed ? inet_pton(AF_INET6, name.substr(1, name.size() - 2).c_str(), &six) == 1
                     : inet_pton(AF_INET, name.c_str(), &four) == 1;
}

bool IsOurs(const std::string& authority, const std::string& usualPort) {
  const Host host = Split(orvo::LowerCase(authority));
  const std::string port = host.port.empty() ? usualPort : host.port;
  const std::vector<std::string> known = ListIn("MIREVO_HOSTS", kUsualHosts);
  return std::any_of(known.begin(), known.end(), [&](const std::string& entry) {
    const Host allowed = Split(entry);
    return (allowed.name == "*" ? IsAddress(host.name) : allowed.name == host.name) &&
           (allowed.port.empty() || allowed.port == port);
  });
}

bool IsListed(const std::string& origin) {
  const std::vector<std::string> listed = ListIn("MIREVO_ORIGINS", "");
  return std::find(listed.begin(), listed.end(), origin) != listed.end();
}

std::string OwnOrigin(const Request& request) {
  return request.Scheme() + "://" + orvo::LowerCase(request.Header("HOST"));
}

// "https://a.example" of "https://a.example/page".
std::string OriginOf(const std::string& address) {
  constexpr std::string_view kSeparator = "://";
  const auto scheme = address.find(kSeparator);
  const auto path = scheme == std::string::npos ? std::string::npos
                                                : address.find('/', scheme + kSeparator.size());
  return address.substr(0, path);
}

// The origin of the page that sends a request; "" if there is no page. Browsers may omit the origin
// for embedded content, but then report that the request is cross-site.
std::string PageOrigin(const Request& request) {
  const std::string origin = request.Header("ORIGIN");
  const std::string site = request.Header("SEC_FETCH_SITE");
  // A page that hides its address sends the origin "null", even to its own server.
  if ((site == "same-origin" || site == "none") && (origin.empty() || origin == kHiddenOrigin)) {
    return "";
  }
  if (!origin.empty()) {
    return origin;
  }
  const std::string page = OriginOf(request.Header("REFERER"));
  return page.empty() && !site.empty() ? kHiddenOrigin : page;
}

}  // namespace

std::optional<Answer> RefuseStranger(const Request& request) {
  const std::string host = request.Header("HOST");
  // Only programs that are not browsers omit this header.
  const std::string usualPort = request.Scheme() == "https" ? "443" : "80";
  if (!host.empty() && !IsOurs(host, usualPort)) {
    return Answer::Failure(kForbidden,
                           "This server does not accept the host name of this address.");
  }
  const std::string page = PageOrigin(request);
  if (page.empty() || page == OwnOrigin(request) || IsListed(page)) {
    return std::nullopt;
  }
  return Answer::Failure(kForbidden,
                         "This server does not accept requests from pages of other servers.");
}

std::optional<Answer> RefuseHiddenPage(const Request& request) {
  // Every browser calls itself so, and no page can change that of a picture.
  const bool isBrowser = request.Header("USER_AGENT").starts_with("Mozilla/");
  const bool isSilent = request.Header("ORIGIN").empty() && request.Header("REFERER").empty() &&
                        request.Header("SEC_FETCH_SITE").empty();
  if (request.Method() == "POST" || !isBrowser || !isSilent) {
    return std::nullopt;
  }
  return Answer::Failure(kForbidden,
                         "The browser does not tell which page sends this request. Use POST.");
}

Answer DescribeOptions(const Request& request) {
  Answer answer = Answer::NoContent();
  answer.AddHeader("Allow", kMethods);
  if (request.Header("ACCESS_CONTROL_REQUEST_METHOD").empty()) {
    return answer;
  }
  answer.AddHeader("Access-Control-Allow-Methods", kMethods);
  answer.AddHeader("Access-Control-Allow-Headers", "Content-Type, Range");
  answer.AddHeader("Access-Control-Max-Age", "600");
  if (request.Header("ACCESS_CONTROL_REQUEST_PRIVATE_NETWORK") == "true") {
    answer.AddHeader("Access-Control-Allow-Private-Network", "true");
  }
  return answer;
}

void SendOriginHeaders(const Request& request) {
  if (ListIn("MIREVO_ORIGINS", "").empty()) {
    return;
  }
  std::string headers = "Vary: Origin\r\n";
  const std::string origin = request.Header("ORIGIN");
  if (IsListed(origin)) {
    headers += "Access-Control-Allow-Origin: " + origin + "\r\n";
    headers += "Access-Control-Expose-Headers: Content-Length, Content-Range, Retry-After\r\n";
  }
  orvo::WriteAll(STDOUT_FILENO, headers);
}

}  // namespace webapi
