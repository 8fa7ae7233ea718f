#include "webapi/http/request.h"

#include <json/reader.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <sstream>

#include "util/json_utils.h"
#include "util/qmxutils.h"
#include "webapi/http/number.h"

namespace webapi {
namespace {

using LibOrvoQMX::ParseNumber;

// The rest of "&amp;" after its "&". Some players use an address from an XML attribute without
// decoding it.
constexpr char kEscapedSeparator[] = "amp;";
constexpr size_t kMaxBody = 65536;
constexpr char kFormType[] = "application/x-www-form-urlencoded";

std::string Environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

// The system's calls would take such a text for a shorter one.
bool HasZero(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

// Removes the quotes around a text. Playlists put quotes around the unchanged value, so a text that
// is not valid JSON, or has a zero byte, is used literally.
std::string Unquote(const std::string& text) {
  Json::CharReaderBuilder strict;
  strict["failIfExtra"] = true;
  Json::Value value;
  std::istringstream stream(text);
  const bool isJson = Json::parseFromStream(strict, stream, &value, nullptr) && value.isString() &&
                      !HasZero(value.asString());
  return isJson ? value.asString() : text.substr(1, text.size() - 2);
}

bool ReadBody(size_t length, std::string& body) {
  body.resize(length);
  size_t done = 0;
  while (done < length) {
    const ssize_t count = read(STDIN_FILENO, body.data() + done, length - done);
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return false;
    }
    done += static_cast<size_t>(count);
  }
  return true;
}

// Does a named proxy say that its client came by HTTPS? The web server believes that only for
// clients with another address than the proxies, so not for those on the proxy's own machine.
bool IsEncryptedBeforeProxy() {
  const auto proxies = LibOrvoQMX::StringExplode(Environment("MIREVO_PROXIES"), " ");
  const bool isProxy =
      std::find(proxies.begin(), proxies.end(), Environment("REMOTE_ADDR")) != proxies.end();
  return isProxy && Environment("HTTP_X_FORWARDED_PROTO") == "https";
}

// Decodes escapes, and takes "+" for `plus`. Nothing for a broken escape or a zero byte.
std::optional<std::string> Decode(const std::string& text, char plus) {
  std::string value;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '+') {
      value += plus;
    } else if (text[i] != '%') {
      value += text[i];
    } else {
      unsigned byte = 0;
      const char* const digits = text.data() + i + 1;
      if (i + 2 >= text.size() || std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
        return std::nullopt;
      }
      value += static_cast<char>(byte);
      i += 2;
    }
  }
  return HasZero(value) ? std::nullopt : std::optional(std::move(value));
}

bool IsAuthority(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '.' || c == ':' || c == '-' || c == '[' || c == ']';
  });
}

}  // namespace

std::optional<Request> Request::Read(std::string& error) {
  Request request;
  if (!request.AddParameters(Environment("QUERY_STRING"))) {
    error = "The query of this address is malformed.";
    return std::nullopt;
  }
  for (const auto& [name, value] : request.parameters_) {
    request.namesInAddress_.insert(name);
  }
  if (request.Method() != "POST") {
    return request;
  }
  const auto length = ParseNumber(Environment("CONTENT_LENGTH"));
  std::string body;
  if (Environment("CONTENT_TYPE").rfind(kFormType, 0) != 0 || !length ||
      static_cast<size_t>(*length) > kMaxBody || !ReadBody(static_cast<size_t>(*length), body) ||
      !request.AddParameters(body)) {
    error = "The form that was sent is malformed or too long.";
    return std::nullopt;
  }
  return request;
}

bool Request::AddParameters(const std::string& query) {
  size_t start = 0;
  while (start < query.size()) {
    const size_t end = std::min(query.find('&', start), query.size());
    std::string pair = query.substr(start, end - start);
    start = end + 1;
    if (pair.rfind(kEscapedSeparator, 0) == 0) {
      pair.erase(0, sizeof(kEscapedSeparator) - 1);
    }
    if (pair.empty()) {
      continue;
    }
    const size_t equals = std::min(pair.find('='), pair.size());
    const auto name = DecodeQueryValue(pair.substr(0, equals));
    const auto value =
        DecodeQueryValue(equals < pair.size() ? pair.substr(equals + 1) : std::string());
    if (!name || !value) {
      return false;
    }
    parameters_.emplace(*name, *value);
  }
  return true;
}

bool Request::Has(const std::string& name) const {
  return parameters_.count(name) > 0;
}

std::string Request::Text(const std::string& name) const {
  const auto found = parameters_.find(name);
  if (found == parameters_.end()) {
    return "";
  }
  const std::string& text = found->second;
  return text.size() >= 2 && text.front() == '"' && text.back() == '"' ? Unquote(text) : text;
}

std::optional<int64_t> Request::Number(const std::string& name, int64_t max) const {
  const auto number = ParseNumber(Text(name));
  return number && *number <= max ? number : std::nullopt;
}

std::optional<double> Request::Seconds(const std::string& name, double max) const {
  const auto seconds = ParseDecimal(Text(name));
  return seconds && *seconds <= max ? seconds : std::nullopt;
}

std::string Request::StreamId() const {
  return Text(Has("stream_id") ? "stream_id" : "id");
}

std::string Request::Header(const std::string& name) const {
  return Environment(("HTTP_" + name).c_str());
}

std::string Request::Method() const {
  return Environment("REQUEST_METHOD");
}

std::string Request::Authority() const {
  const std::string host = Header("HOST");
  return IsAuthority(host) ? host : Environment("SERVER_NAME") + ":" + Environment("SERVER_PORT");
}

std::string Request::Scheme() const {
  const std::string secure = Environment("HTTPS");
  return secure == "on" || secure == "1" || IsEncryptedBeforeProxy() ? "https" : "http";
}

std::string Request::Program() const {
  return Environment("SCRIPT_NAME");
}

// The web server's own decoded path lacks control characters, which a file's name may contain.
std::optional<std::string> Request::PathInProgram() const {
  const std::string address = Environment("REQUEST_URI");
  const std::string path = address.substr(0, address.find('?'));
  for (const std::string& program : {PathPrefix() + Program(), Program()}) {
    if (path.starts_with(program)) {
      return Decode(path.substr(program.size()), '+');
    }
  }
  return std::nullopt;
}

std::string Request::ClientAddress() const {
  return Environment("REMOTE_ADDR");
}

std::optional<int64_t> Request::RangeStart() const {
  constexpr std::string_view kUnit = "bytes=";
  const std::string range = Header("RANGE");
  if (range.size() <= kUnit.size() + 1 || range.compare(0, kUnit.size(), kUnit) != 0 ||
      range.back() != '-') {
    return std::nullopt;
  }
  return ParseNumber(std::string_view(range).substr(kUnit.size(), range.size() - kUnit.size() - 1));
}

std::string PathPrefix() {
  return Environment("MIREVO_PREFIX");
}

std::string EntryPath() {
  return PathPrefix() + "/webapi/entry.cgi";
}

std::optional<std::string> DecodeQueryValue(const std::string& text) {
  return Decode(text, ' ');
}

std::string EncodeQueryValue(const std::string& text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  constexpr std::string_view kPlain = "-_.~/";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isLetterOrDigit = byte < 128 && std::isalnum(byte) != 0;
    if (isLetterOrDigit || kPlain.find(c) != std::string_view::npos) {
      encoded += c;
    } else {
      encoded += '%';
      encoded += kDigits[byte >> 4];
      encoded += kDigits[byte & 0xf];
    }
  }
  return encoded;
}

bool IsUtf8(const std::string& text) {
  return LibMirevo::IsJsonText(text);
}

}  // namespace webapi
