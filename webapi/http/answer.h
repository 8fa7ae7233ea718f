// What a client is told.
#pragma once

#include <json/value.h>

#include <string>

namespace webapi {

// The words for failures that the library has no word for.
inline constexpr char kBadRequest[] = "BadRequest";
inline constexpr char kForbidden[] = "Forbidden";
inline constexpr char kNotFound[] = "NotFound";
inline constexpr char kMethodNotAllowed[] = "MethodNotAllowed";
inline constexpr char kTooManyRequests[] = "TooManyRequests";
inline constexpr char kUnauthorized[] = "Unauthorized";
inline constexpr char kRangeNotSatisfiable[] = "RangeNotSatisfiable";
inline constexpr char kBusy[] = "Busy";
inline constexpr char kInternal[] = "Internal";

class Answer {
 public:
  static Answer Success(const Json::Value& data);
  // `reason` is one of the words above or one of the library's; `message` one plain sentence, the
  // library's usual one when empty.
  static Answer Failure(const std::string& reason, const std::string& message = "");
  // Nothing to say but that it is so.
  static Answer NoContent();
  // Everything that was to be sent has been sent.
  static Answer Sent();

  // Adds a header. The value is none of a client's: nothing looks for line ends in it.
  Answer& AddHeader(const std::string& name, const std::string& value);

  bool IsFailure() const { return code_ >= 400; }

  // Writes it to standard output as a CGI answer; the headers alone for a HEAD request.
  void Send(bool headersOnly) const;

 private:
  int code_ = 0;  // the HTTP status; 0 when there is nothing to send
  bool retry_ = false;
  std::string headers_;
  Json::Value body_;
};

}  // namespace webapi
