#include "webapi/http/send_file.h"

#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string_view>

#include "platform/io.h"
#include "platform/unique_fd.h"
#include "webapi/http/deadline.h"
#include "webapi/http/leaving.h"
#include "webapi/http/work.h"

namespace webapi {
namespace {

constexpr char kEnd[] = "\r\n";
constexpr char kNoStore[] = "no-store";

std::string Header(const char* name, const std::string& value) {
  return std::string(name) + ": " + value + kEnd;
}

std::string Headers(const char* status, const std::string& contentType, const char* cacheControl) {
  return Header("Status", status) + Header("Content-Type", contentType) +
         Header("Cache-Control", cacheControl) + Header("X-Content-Type-Options", "nosniff");
}

// A tag that changes when the file or its content changes. A segment's content belongs to its place
// in the film, so whole seconds are enough; the web server, which also sends segments
// (serve/ready_segment.lua), knows no others.
std::string TagOf(const struct stat& status, bool isSegment) {
  const int64_t nanoseconds = status.st_mtim.tv_sec * INT64_C(1000000000) + status.st_mtim.tv_nsec;
  return '"' + std::to_string(status.st_ino) + "-" + std::to_string(status.st_size) + "-" +
         std::to_string(isSegment ? status.st_mtim.tv_sec : nanoseconds) + '"';
}

std::string HttpDate(time_t time) {
  tm fields{};
  gmtime_r(&time, &fields);
  char text[40];
  return std::string(text, strftime(text, sizeof(text), "%a, %d %b %Y %H:%M:%S GMT", &fields));
}

// The header that makes the web server send the file; "" if the web server cannot. It decodes the
// path, and accepts neither control characters nor invalid UTF-8.
std::string HandOver(const std::string& path) {
  const char* const header = secure_getenv("MIREVO_SENDFILE");
  const bool isPlain =
      std::none_of(path.begin(), path.end(), [](unsigned char c) { return std::iscntrl(c) != 0; });
  return header != nullptr && isPlain && IsUtf8(path) ? Header(header, EncodeQueryValue(path)) : "";
}

// Is the requested range part of this version of the file? A client cannot combine parts of two
// versions.
bool IsRangeOfThis(const Request& request, const std::string& tag, const std::string& date) {
  const std::string condition = request.Header("IF_RANGE");
  return condition.empty() || condition == tag || condition == date;
}

// Sends the bytes from `from` to `end`, and moves `from`. Returns false if the client has gone.
bool Copy(int file, off_t& from, off_t end) {
  while (from < end && sendfile(STDOUT_FILENO, file, &from, static_cast<size_t>(end - from)) > 0) {
  }
  return from >= end;
}

class FileAnswer {
 public:
  FileAnswer(const Request& request, const struct stat& status, const std::string& contentType,
             const char* cacheControl, const std::string& more = "")
      : request_(request),
        resource_{0, status.st_size - 1},
        tag_(TagOf(status, cacheControl == std::string_view(kKeepSegment))),
        date_(HttpDate(status.st_mtime)),
        contentType_(contentType),
        cacheControl_(cacheControl),
        more_(more) {}

  // The answer is this part of the file.
  FileAnswer& Within(const ByteRange& part) {
    resource_ = part;
    return *this;
  }

  // Lets the web server send the whole file or a part of it.
  void SendBy(const std::string& handOver) const { Write(Common("200 OK") + handOver + kEnd); }

  void Send(int file) const {
    bool outside = false;
    const int64_t size = resource_.Length();
    const auto range = ParseByteRange(request_.Header("RANGE"), size, outside);
    if (NamesTag(request_.Header("IF_NONE_MATCH"), tag_)) {
      Write(Common("304 Not Modified") + kEnd);
    } else if (request_.Method() == "HEAD" || !IsRangeOfThis(request_, tag_, date_) ||
               (!range && !outside)) {
      SendBytes(file, Common("200 OK"), {0, size - 1});
    } else if (outside) {
      const std::string all = "bytes */" + std::to_string(size);
      Write(Common("416 Range Not Satisfiable") + Header("Content-Range", all) +
            Header("Content-Length", "0") + kEnd);
    } else {
      const std::string part = "bytes " + std::to_string(range->first) + "-" +
                               std::to_string(range->last) + "/" + std::to_string(size);
      SendBytes(file, Common("206 Partial Content") + Header("Content-Range", part), *range);
    }
  }

 private:
  static void Write(const std::string& text) { orvo::WriteAll(STDOUT_FILENO, text); }

  std::string Common(const char* status) const {
    return Headers(status, contentType_, cacheControl_) + Header("ETag", tag_) +
           Header("Last-Modified", date_) + Header("Accept-Ranges", "bytes") + more_;
  }

  void SendBytes(int file, const std::string& headers, const ByteRange& range) const {
    Write(headers + Header("Content-Length", std::to_string(range.Length())) + kEnd);
    if (request_.Method() != "HEAD") {
      RemoveDeadline();
      off_t from = resource_.first + range.first;
      Copy(file, from, from + range.Length());
    }
  }

  const Request& request_;
  ByteRange resource_;
  std::string tag_;
  std::string date_;
  const std::string& contentType_;
  const char* cacheControl_;
  std::string more_;
};

}  // namespace

Answer SendText(const Request& request, const std::string& contentType, const std::string& text) {
  const std::string headers = Headers("200 OK", contentType, kNoStore) +
                              Header("Content-Length", std::to_string(text.size())) + kEnd;
  orvo::WriteAll(STDOUT_FILENO, request.Method() == "HEAD" ? headers : headers + text);
  return Answer::Sent();
}

void SendFileHeaders(const std::string& contentType, const std::string& more) {
  orvo::WriteAll(STDOUT_FILENO, Headers("200 OK", contentType, kNoStore) + more + kEnd);
}

OpenAnswer::OpenAnswer(const std::string& headers)
    : isChunked_(secure_getenv("MIREVO_CHUNKED") != nullptr) {
  RemoveDeadline();
  const std::string coding = isChunked_ ? Header("Transfer-Encoding", "chunked") : "";
  orvo::WriteAll(STDOUT_FILENO, headers + coding + kEnd);
}

OpenAnswer::OpenAnswer(const std::string& contentType, const std::string& more)
    : OpenAnswer(Headers("200 OK", contentType, kNoStore) + more) {}

bool OpenAnswer::Send(int file, off_t& from, off_t end) const {
  if (!isChunked_ || from >= end) {
    return Copy(file, from, end);
  }
  return BeginChunk(static_cast<size_t>(end - from)) && Copy(file, from, end) &&
         orvo::WriteAll(STDOUT_FILENO, kEnd);
}

bool OpenAnswer::Send(std::string_view bytes) const {
  if (!isChunked_ || bytes.empty()) {
    return orvo::WriteAll(STDOUT_FILENO, bytes);
  }
  return BeginChunk(bytes.size()) && orvo::WriteAll(STDOUT_FILENO, bytes) &&
         orvo::WriteAll(STDOUT_FILENO, kEnd);
}

bool OpenAnswer::BeginChunk(size_t size) const {
  std::array<char, 24> length;
  snprintf(length.data(), length.size(), "%zx\r\n", size);
  return orvo::WriteAll(STDOUT_FILENO, length.data());
}

void OpenAnswer::Finish() const {
  OutliveClient();  // as in SendFile
  if (isChunked_) {
    orvo::WriteAll(STDOUT_FILENO, "0\r\n\r\n");
  }
}

bool SendFile(const Request& request, const std::string& path, const std::string& contentType,
              const char* cacheControl, const std::string& more, Sender sender) {
  const orvo::UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!file.IsOpen() || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  const FileAnswer answer(request, status, contentType, cacheControl, more);
  const bool isOwn = sender == Sender::kThisProgram || request.Method() == "HEAD";
  const std::string handOver = isOwn ? "" : HandOver(path);
  if (handOver.empty()) {
    answer.Send(file.Get());
  } else {
    // The web server needs this process no more, but what it still has to remember is not lost.
    OutliveClient();
    answer.SendBy(handOver);
  }
  return true;
}

Answer SendFile(const Request& request, const orvo::MediaFile& file, const std::string& contentType,
                const char* cacheControl) {
  return SendPart(request, file, {0, file.Status().st_size - 1}, contentType, cacheControl);
}

Answer SendPart(const Request& request, const orvo::MediaFile& file, const ByteRange& part,
                const std::string& contentType, const char* cacheControl) {
  const auto transfer = Transfer::Begin(request.MadeBy().client);
  if (!transfer) {
    return Answer::Failure(kBusy, "You get too many files at a time. Wait until one has ended.");
  }
  FileAnswer(request, file.Status(), contentType, cacheControl).Within(part).Send(file.Get());
  return Answer::Sent();
}

}  // namespace webapi
