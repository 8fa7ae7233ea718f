// One request, as a web server hands it to a CGI program.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "webapi/http/caller.h"

namespace webapi {

class Request {
 public:
  // Reads the CGI environment and, for a form, standard input. `error` gets a sentence for the
  // client when the request is malformed.
  static std::optional<Request> Read(std::string& error);

  // Takes the parameters of a query text ("a=1&b=%22two%22"). The first of a name counts.
  bool AddParameters(const std::string& query);

  bool Has(const std::string& name) const;
  // A text parameter; both plain and as a JSON text. "" when absent.
  std::string Text(const std::string& name) const;
  // A non-negative whole number of at most `max`. Nothing when absent or of another form.
  std::optional<int64_t> Number(const std::string& name, int64_t max) const;

  // A non-negative time in seconds of at most `max`, whole or with a fraction. Likewise.
  std::optional<double> Seconds(const std::string& name, double max) const;

  // The stream that it names, in the newer or the older spelling ("stream_id", "id"). One place, so
  // that whoever looks whether it may be used looks at the one that is.
  std::string StreamId() const;

  // A header of the request by its CGI name ("USER_AGENT"); "" when absent.
  std::string Header(const std::string& name) const;
  std::string Method() const;     // "GET", "POST", "HEAD", ...
  std::string Authority() const;  // host and port that the client used
  std::string Scheme() const;
  std::string ClientAddress() const;
  // The first byte of an open "bytes=N-" range; nothing without one of that form.
  std::optional<int64_t> RangeStart() const;

  // Who makes it. Until somebody has found out: nobody.
  const Caller& MadeBy() const { return caller_; }
  void SetCaller(const Caller& caller) { caller_ = caller; }

 private:
  std::map<std::string, std::string> parameters_;
  Caller caller_;
};

// Undoes the encoding of a query value. Nothing for a broken escape or a zero byte.
std::optional<std::string> DecodeQueryValue(const std::string& text);

// Makes any bytes fit a query: all but unreserved characters and "/" become %XX.
std::string EncodeQueryValue(const std::string& text);

// JSON, which records and answers are made of, can hold no other bytes.
bool IsUtf8(const std::string& text);

}  // namespace webapi
