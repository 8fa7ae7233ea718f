// One request, in the form that a CGI program receives.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "webapi/http/caller.h"

namespace webapi {

class Request {
 public:
  // Reads the CGI environment and, for a form, standard input. If the request is malformed, returns
  // nothing and sets `error` to a sentence for the client.
  static std::optional<Request> Read(std::string& error);

  // Adds the parameters of a query text ("a=1&b=%22two%22"). If a name occurs twice, the first one
  // counts.
  bool AddParameters(const std::string& query);

  bool Has(const std::string& name) const;
  // The names of the parameters in the address, which web servers and proxies write to their logs.
  const std::set<std::string>& NamesInAddress() const { return namesInAddress_; }
  // A text parameter, which may be plain or a JSON text. "" if absent.
  std::string Text(const std::string& name) const;
  // A whole number from 0 to `max`. Nothing if it is absent or has another form.
  std::optional<int64_t> Number(const std::string& name, int64_t max) const;

  // A time from 0 to `max` seconds, whole or with a fraction. Nothing if it is absent or has
  // another form.
  std::optional<double> Seconds(const std::string& name, double max) const;

  // The stream id of the request, in the newer or the older spelling ("stream_id", "id"). All code
  // reads it here, so the check of the permission and the use always see the same stream.
  std::string StreamId() const;

  // A header of the request by its CGI name ("USER_AGENT"); "" if absent.
  std::string Header(const std::string& name) const;
  std::string Method() const;     // "GET", "POST", "HEAD", ...
  std::string Authority() const;  // host and port that the client used
  std::string Scheme() const;
  // The path as which the web server knows this program ("/webapi/entry.cgi").
  std::string Program() const;
  // The rest of the address's path after it, decoded: "/a b" of "/files/a%20b?c=d". Nothing for a
  // broken escape or a zero byte.
  std::optional<std::string> PathInProgram() const;
  std::string ClientAddress() const;
  // The first byte of an open range "bytes=N-"; nothing for any other range.
  std::optional<int64_t> RangeStart() const;

  // The caller. Unknown until it has been set.
  const Caller& MadeBy() const { return caller_; }
  void SetCaller(const Caller& caller) { caller_ = caller; }

  // The content of the ticket that the address carries, if the stream is not known here
  // (access/sealed_ticket.h); otherwise null.
  const Json::Value& SealedTicket() const { return sealedTicket_; }
  void SetSealedTicket(const Json::Value& content) { sealedTicket_ = content; }

 private:
  std::map<std::string, std::string> parameters_;
  std::set<std::string> namesInAddress_;
  Caller caller_;
  Json::Value sealedTicket_;
};

// The path before all addresses of the service, as clients know it: "/films", or "" for none. From
// MIREVO_PREFIX in the environment.
std::string PathPrefix();
// The path of the request program in addresses for clients.
std::string EntryPath();

// Decodes a query value. Returns nothing for a broken escape or a zero byte.
std::optional<std::string> DecodeQueryValue(const std::string& text);

// Encodes any bytes for a query: all except unreserved characters and "/" become %XX.
std::string EncodeQueryValue(const std::string& text);

// Is `text` valid UTF-8? JSON, the format of records and answers, can hold no other bytes.
bool IsUtf8(const std::string& text);

}  // namespace webapi
