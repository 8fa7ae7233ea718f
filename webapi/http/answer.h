// An answer to a client.
#pragma once

#include <json/value.h>

#include <string>

namespace webapi {

// Error words for failures that the library has no word for.
inline constexpr char kBadRequest[] = "BadRequest";
inline constexpr char kForbidden[] = "Forbidden";
inline constexpr char kNotFound[] = "NotFound";
inline constexpr char kGone[] = "Gone";
inline constexpr char kMethodNotAllowed[] = "MethodNotAllowed";
inline constexpr char kTooManyRequests[] = "TooManyRequests";
inline constexpr char kUnauthorized[] = "Unauthorized";
inline constexpr char kRangeNotSatisfiable[] = "RangeNotSatisfiable";
inline constexpr char kBusy[] = "Busy";
inline constexpr char kUnavailable[] = "Unavailable";
inline constexpr char kNoFilm[] = "TransVideoNotSupported";
inline constexpr char kInternal[] = "Internal";

class Answer {
 public:
  static Answer Success(const Json::Value& data);
  // `reason` is one of the words above or one of the library's. `message` is one plain sentence; if
  // it is empty, the usual sentence for `reason`.
  static Answer Failure(const std::string& reason, const std::string& message = "");
  // Success: the work begins later.
  static Answer Accepted();
  // Success without content.
  static Answer NoContent();
  // The content has another address, from now on. It may be relative to the one of the request, and
  // has no characters that a header may not have.
  static Answer Elsewhere(const std::string& address);
  // The answer has already been sent.
  static Answer Sent();

  // Adds a header. Do not pass a client's text as the value: line ends in it are not checked.
  Answer& AddHeader(const std::string& name, const std::string& value);

  // Adds data to a failure, for callers that need both.
  Answer& AddData(const Json::Value& data);

  bool IsFailure() const { return code_ >= 400; }

  // Is it a failure for this reason?
  bool IsFor(const std::string& reason) const;

  // Writes the answer to standard output in CGI form. For a HEAD request it writes only the
  // headers.
  void Send(bool headersOnly) const;

 private:
  int code_ = 0;  // the HTTP status; 0 if there is nothing to send
  bool retry_ = false;
  std::string headers_;
  Json::Value body_;
};

}  // namespace webapi
