#include "webapi/http/answer.h"

#include <gtest/gtest.h>

#include <string>

#include "support/sysroot.h"

namespace {

using webapi::Answer;

std::string SentBy(const Answer& answer, bool headersOnly = false) {
  testing::internal::CaptureStdout();
  answer.Send(headersOnly);
  return testing::internal::GetCapturedStdout();
}

std::string StatusOf(const Answer& answer) {
  const std::string sent = SentBy(answer);
  return sent.substr(0, sent.find("\r\n"));
}

Json::Value BodyOf(const Answer& answer) {
  const std::string sent = SentBy(answer);
  return test::ParseText(sent.substr(sent.find("\r\n\r\n") + 4));
}

TEST(Answer, OfSuccessCarriesTheData) {
  Json::Value data;
  data["a"] = 1;
  const Answer answer = Answer::Success(data);
  EXPECT_FALSE(answer.IsFailure());
  EXPECT_EQ(StatusOf(answer), "Status: 200 OK");
  EXPECT_TRUE(BodyOf(answer)["success"].asBool());
  EXPECT_EQ(BodyOf(answer)["data"], data);
}

TEST(Answer, OfFailureCarriesAWordANumberAndASentence) {
  const Answer usual = Answer::Failure(webapi::kGone);
  EXPECT_TRUE(usual.IsFor(webapi::kGone));
  EXPECT_FALSE(usual.IsFor(webapi::kNotFound));
  EXPECT_EQ(StatusOf(usual), "Status: 410 Gone");
  EXPECT_EQ(BodyOf(usual)["error"]["code"], 410);
  EXPECT_FALSE(BodyOf(usual)["success"].asBool());
  EXPECT_NE(BodyOf(usual)["error"]["message"].asString(), "");
  EXPECT_EQ(BodyOf(Answer::Failure(webapi::kGone, "It went."))["error"]["message"], "It went.");
  EXPECT_FALSE(Answer::Success(Json::objectValue).IsFor(webapi::kGone));
}

TEST(Answer, ForAnUnknownReasonIsAFailureOfTheServer) {
  const Answer answer = Answer::Failure("a word that nobody knows");
  EXPECT_EQ(StatusOf(answer), "Status: 500 Internal Server Error");
  EXPECT_TRUE(answer.IsFor(webapi::kInternal));
}

TEST(Answer, ThatMayBeAskedForAgainSaysWhen) {
  const std::string busy = SentBy(Answer::Failure(webapi::kBusy));
  EXPECT_NE(busy.find("\r\nRetry-After: 5\r\n"), std::string::npos);
  EXPECT_EQ(BodyOf(Answer::Failure(webapi::kBusy))["error"]["retry_after"], 5);
  EXPECT_EQ(SentBy(Answer::Failure(webapi::kGone)).find("Retry-After"), std::string::npos);
}

TEST(Answer, WithoutABodyHasNoTypeAndNoLength) {
  for (const Answer& answer : {Answer::NoContent(), Answer::Elsewhere("/there")}) {
    const std::string sent = SentBy(answer);
    EXPECT_EQ(sent.find("\r\nContent-"), std::string::npos) << sent;
    EXPECT_TRUE(sent.ends_with("\r\n\r\n"));
  }
  EXPECT_EQ(StatusOf(Answer::NoContent()), "Status: 204 No Content");
  EXPECT_EQ(StatusOf(Answer::Elsewhere("/there")), "Status: 301 Moved Permanently");
  EXPECT_NE(SentBy(Answer::Elsewhere("/there")).find("\r\nLocation: /there\r\n"),
            std::string::npos);
  EXPECT_EQ(StatusOf(Answer::Accepted()), "Status: 202 Accepted");
}

TEST(Answer, ToAQuestionForHeadersHasNoBody) {
  const std::string whole = SentBy(Answer::Failure(webapi::kGone));
  const std::string headers = SentBy(Answer::Failure(webapi::kGone), true);
  EXPECT_EQ(headers, whole.substr(0, headers.size()));
  EXPECT_TRUE(headers.ends_with("\r\n\r\n"));
  EXPECT_NE(headers.find("Content-Length: "), std::string::npos);
}

TEST(Answer, ThatHasBeenSentIsNotSentAgain) {
  EXPECT_EQ(SentBy(Answer::Sent()), "");
  EXPECT_FALSE(Answer::Sent().IsFailure());
}

TEST(Answer, MayHaveBothAFailureAndData) {
  Json::Value data;
  data["a"] = 1;
  const Json::Value body = BodyOf(Answer::Failure(webapi::kGone).AddData(data));
  EXPECT_EQ(body["data"], data);
  EXPECT_EQ(body["error"]["reason"], "Gone");
}

}  // namespace
