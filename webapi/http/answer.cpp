#include "webapi/http/answer.h"

#include <unistd.h>

#include <array>

#include "platform/io.h"
#include "util/json_utils.h"

namespace webapi {
namespace {

constexpr int kOk = 200;
constexpr int kAccepted = 202;
constexpr int kNoContent = 204;
constexpr int kMoved = 301;
constexpr int kRetrySeconds = 5;

struct Reason {
  const char* word;
  int code;
  const char* status;
  const char* message;
};

// The last row is for all other words.
constexpr std::array kReasons = {
    Reason{kBadRequest, 400, "Bad Request", "The request is malformed."},
    Reason{kUnauthorized, 401, "Unauthorized", "Log in first."},
    Reason{kForbidden, 403, "Forbidden", "This path lies outside the media folders."},
    Reason{kNotFound, 404, "Not Found", "The server has nothing with this name."},
    Reason{kMethodNotAllowed, 405, "Method Not Allowed", "This call needs another HTTP method."},
    Reason{"NotFinished", 409, "Conflict", "The conversion has not ended yet."},
    Reason{kGone, 410, "Gone", "This address no longer leads to a film. Open the film again."},
    Reason{"TransAudioNotSupported", 415, "Unsupported Media Type",
           "The sound of this film cannot be decoded."},
    Reason{"TransVideoNotHardwareSupported", 415, "Unsupported Media Type",
           "The hardware of this machine cannot decode this film's video codec."},
    Reason{"TransVideoOutOfResolutionCapability", 415, "Unsupported Media Type",
           "The picture of this film is larger than the hardware can transcode."},
    Reason{"TransVideoOutOfProfileCapability", 415, "Unsupported Media Type",
           "The hardware cannot transcode the 10-bit picture of this film."},
    Reason{"TransVideoOutOfFramerateCapability", 415, "Unsupported Media Type",
           "The hardware cannot transcode this film's frame rate at this size."},
    Reason{"TransVideoNotSupported", 415, "Unsupported Media Type",
           "This file has no video that can be played."},
    Reason{kRangeNotSatisfiable, 416, "Range Not Satisfiable", "The film ends before this byte."},
    Reason{kTooManyRequests, 429, "Too Many Requests", "Wait a moment, then try again."},
    Reason{"TransEnable", 503, "Service Unavailable",
           "Another film is being transcoded at the moment. Try again when it has ended."},
    Reason{"TransEnableOfflineConverting", 503, "Service Unavailable",
           "A conversion is running at the moment. Try again when it has ended."},
    Reason{kBusy, 503, "Service Unavailable",
           "The server is examining many films at the moment. Try again in a few seconds."},
    Reason{kUnavailable, 503, "Service Unavailable",
           "FFmpeg is missing on the server. It is in the package ffmpeg."},
    Reason{"NotReady", 504, "Gateway Timeout", "The transcoder did not produce this part in time."},
    Reason{"TransSapceNotEnough", 507, "Insufficient Storage",
           "There is not enough free space on the volumes for this stream."},
    Reason{kInternal, 500, "Internal Server Error", "Something went wrong on the server."},
};

const Reason& Find(const std::string& word) {
  for (const Reason& row : kReasons) {
    if (word == row.word) {
      return row;
    }
  }
  return kReasons.back();
}

const char* StatusText(int code) {
  for (const Reason& row : kReasons) {
    if (row.code == code) {
      return row.status;
    }
  }
  switch (code) {
    case kAccepted:
      return "Accepted";
    case kNoContent:
      return "No Content";
    case kMoved:
      return "Moved Permanently";
    default:
      return "OK";
  }
}

}  // namespace

bool Answer::IsFor(const std::string& reason) const {
  return IsFailure() && body_["error"]["reason"] == reason;
}

Answer Answer::Success(const Json::Value& data) {
  Answer answer;
  answer.code_ = kOk;
  answer.body_["success"] = true;
  answer.body_["data"] = data;
  return answer;
}

Answer Answer::Failure(const std::string& reason, const std::string& message) {
  const Reason& row = Find(reason);
  Answer answer;
  answer.code_ = row.code;
  answer.retry_ = row.code == 503;
  answer.body_["success"] = false;
  Json::Value& error = answer.body_["error"];
  error["code"] = row.code;
  error["reason"] = row.word;
  error["message"] = message.empty() ? row.message : message;
  if (answer.retry_) {
    error["retry_after"] = kRetrySeconds;
  }
  return answer;
}

Answer Answer::Accepted() {
  Answer answer = Success(Json::Value(Json::objectValue));
  answer.code_ = kAccepted;
  return answer;
}

Answer Answer::NoContent() {
  Answer answer;
  answer.code_ = kNoContent;
  return answer;
}

Answer Answer::Elsewhere(const std::string& address) {
  Answer answer;
  answer.code_ = kMoved;
  answer.AddHeader("Location", address);
  return answer;
}

Answer Answer::Sent() {
  return {};
}

Answer& Answer::AddHeader(const std::string& name, const std::string& value) {
  headers_ += name + ": " + value + "\r\n";
  return *this;
}

Answer& Answer::AddData(const Json::Value& data) {
  body_["data"] = data;
  return *this;
}

void Answer::Send(bool headersOnly) const {
  if (code_ == 0) {
    return;
  }
  const std::string body = body_.isNull() ? "" : LibMirevo::FormatJson(body_);
  std::string text = "Status: " + std::to_string(code_) + " " + StatusText(code_) + "\r\n";
  if (!body.empty()) {
    text += "Content-Type: application/json; charset=utf-8\r\n";
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  }
  text += headers_;
  text += "Cache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n";
  if (retry_) {
    text += "Retry-After: " + std::to_string(kRetrySeconds) + "\r\n";
  }
  text += "\r\n";
  orvo::WriteAll(STDOUT_FILENO, headersOnly ? text : text + body);
}

}  // namespace webapi
