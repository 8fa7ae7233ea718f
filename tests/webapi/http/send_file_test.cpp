#include "webapi/http/send_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <regex>

#include "support/environment.h"
#include "support/sysroot.h"

namespace {

using Headers = std::map<std::string, std::string>;

constexpr char kFile[] = "/films/a.mkv";
constexpr char kType[] = "video/x-matroska";

class SentFile : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    Write(kFile, "0123456789");
  }
  // All that a request with these headers is answered.
  std::string Answer(Headers headers, const std::string& name = kFile,
                     webapi::Sender sender = webapi::Sender::kWebServer) const {
    headers.emplace("REQUEST_METHOD", "GET");
    const test::Environment environment(headers);
    testing::internal::CaptureStdout();
    const bool sent =
        webapi::SendFile(webapi::Request(), Path(name), kType, webapi::kAskAgain, "", sender);
    const std::string answer = testing::internal::GetCapturedStdout();
    EXPECT_EQ(sent, !answer.empty());
    return answer;
  }
  static std::string Body(const std::string& answer) {
    return answer.substr(answer.find("\r\n\r\n") + 4);
  }
  static std::string Header(const std::string& answer, const std::string& name) {
    std::smatch found;
    return std::regex_search(answer, found, std::regex("(^|\r\n)" + name + ": ([^\r]*)"))
               ? found[2].str()
               : "";
  }
};

TEST_F(SentFile, IsWholeWithoutARange) {
  const std::string answer = Answer({});
  EXPECT_EQ(Header(answer, "Status"), "200 OK");
  EXPECT_EQ(Header(answer, "Content-Type"), kType);
  EXPECT_EQ(Header(answer, "Content-Length"), "10");
  EXPECT_EQ(Header(answer, "Accept-Ranges"), "bytes");
  EXPECT_EQ(Body(answer), "0123456789");
}

TEST_F(SentFile, IsTheRequestedPart) {
  const std::map<std::string, std::string> parts = {
      {"bytes=0-3", "0123"}, {"bytes=4-", "456789"}, {"bytes=-2", "89"}, {"bytes=8-99", "89"}};
  for (const auto& [range, part] : parts) {
    const std::string answer = Answer({{"HTTP_RANGE", range}});
    EXPECT_EQ(Header(answer, "Status"), "206 Partial Content") << range;
    EXPECT_EQ(Body(answer), part) << range;
    EXPECT_EQ(Header(answer, "Content-Length"), std::to_string(part.size())) << range;
  }
  EXPECT_EQ(Header(Answer({{"HTTP_RANGE", "bytes=2-4"}}), "Content-Range"), "bytes 2-4/10");
}

TEST_F(SentFile, HasNoPartAfterItsEnd) {
  const std::string answer = Answer({{"HTTP_RANGE", "bytes=10-"}});
  EXPECT_EQ(Header(answer, "Status"), "416 Range Not Satisfiable");
  EXPECT_EQ(Header(answer, "Content-Range"), "bytes */10");
  EXPECT_EQ(Body(answer), "");
}

TEST_F(SentFile, IsWholeForAMalformedRange) {
  for (const char* range : {"bytes=", "bytes=5-2", "bytes=0-1,3-4", "chunks=0-1", "bytes=a-b"}) {
    EXPECT_EQ(Body(Answer({{"HTTP_RANGE", range}})), "0123456789") << range;
  }
}

TEST_F(SentFile, IsWholeForARangeOfAnotherVersion) {
  const std::string tag = Header(Answer({}), "ETag");
  EXPECT_EQ(Body(Answer({{"HTTP_RANGE", "bytes=0-3"}, {"HTTP_IF_RANGE", tag}})), "0123");
  EXPECT_EQ(Body(Answer({{"HTTP_RANGE", "bytes=0-3"}, {"HTTP_IF_RANGE", "\"other\""}})),
            "0123456789");
}

TEST_F(SentFile, IsNotSentAgainToAClientThatHasIt) {
  const std::string tag = Header(Answer({}), "ETag");
  const std::string answer = Answer({{"HTTP_IF_NONE_MATCH", tag}});
  EXPECT_EQ(Header(answer, "Status"), "304 Not Modified");
  EXPECT_EQ(Body(answer), "");
  Write(kFile, "something else");
  EXPECT_EQ(Header(Answer({{"HTTP_IF_NONE_MATCH", tag}}), "Status"), "200 OK");
}

TEST_F(SentFile, IsOnlyHeadersForAHeadRequest) {
  const std::string answer =
      Answer({{"REQUEST_METHOD", "HEAD"}, {"MIREVO_SENDFILE", "X-Sendfile"}});
  EXPECT_EQ(Header(answer, "Content-Length"), "10");
  EXPECT_EQ(Body(answer), "");
}

TEST_F(SentFile, IsSentByTheWebServerIfThatCanReadItsName) {
  const Headers server = {{"MIREVO_SENDFILE", "X-Sendfile"}};
  const std::string answer = Answer(server);
  EXPECT_EQ(Header(answer, "X-Sendfile"), Path(kFile));
  EXPECT_EQ(Body(answer), "");
  for (const std::string name : {"/films/new\nline.mkv", "/films/caf\xe9.mkv"}) {
    Write(name, "bytes");
    EXPECT_EQ(Body(Answer(server, name)), "bytes") << name;
    EXPECT_EQ(Header(Answer(server, name), "X-Sendfile"), "") << name;
  }
}

TEST_F(SentFile, IsSentByThisProgramIfItMayBeRemovedRightAfter) {
  const Headers server = {{"MIREVO_SENDFILE", "X-Sendfile"}};
  const std::string answer = Answer(server, kFile, webapi::Sender::kThisProgram);
  EXPECT_EQ(Header(answer, "X-Sendfile"), "");
  EXPECT_EQ(Body(answer), "0123456789");
}

TEST_F(SentFile, IsNeverAFolderAPipeOrAMissingFile) {
  ASSERT_EQ(mkfifo(Path("/films/pipe").c_str(), 0600), 0);
  EXPECT_EQ(Answer({}, "/films"), "");
  EXPECT_EQ(Answer({}, "/films/pipe"), "");
  EXPECT_EQ(Answer({}, "/films/none"), "");
}

TEST_F(SentFile, MayBeEmpty) {
  Write("/films/empty", "");
  const std::string answer = Answer({}, "/films/empty");
  EXPECT_EQ(Header(answer, "Status"), "200 OK");
  EXPECT_EQ(Header(answer, "Content-Length"), "0");
}

}  // namespace
