#include "webapi/access/identity.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "accounts/accounts.h"
#include "accounts/secrets.h"
#include "accounts/sessions.h"
#include "support/environment.h"
#include "support/sysroot.h"
#include "webapi/access/ticket.h"

namespace {

using webapi::Answer;
using webapi::Caller;
using webapi::Request;
using webapi::Right;

constexpr char kId[] = "0123456789abcdef0123456789abcdef_aB3dE6gH";

// Somebody who has to log in, and has.
Caller Account(const std::string& name) {
  Caller caller;
  caller.isLoginRequired = true;
  caller.account = name;
  return caller;
}

class CallerOf : public test::Sysroot {
 protected:
  void SetUp() override {
    Sysroot::SetUp();
    ASSERT_EQ(accounts::Create("anna", "right password", true, {}), accounts::Outcome::kDone);
    session_ = accounts::BeginSession(*accounts::Find("anna"), time(nullptr));
    link_ = accounts::NewSecret();
    WriteTicket(accounts::Find("anna")->era);
  }
  void WriteTicket(const std::string& era) const {
    Json::Value ticket(Json::objectValue);
    ticket["kind"] = "HLS";
    ticket["record"]["path"] = "/films/a.mkv";
    ticket["parameters"]["account"] = "anna";
    ticket["parameters"]["era"] = era;
    ticket["parameters"]["link"] = link_;
    WriteJson(std::string("/tmp/Mirevo/tickets/") + kId, ticket);
  }
  static Caller Find(const std::string& query, Right right) {
    Request request;
    EXPECT_TRUE(request.AddParameters(query));
    return webapi::FindCaller(request, right);
  }
  std::string LinkQuery() const { return "_sid=" + link_ + "&stream_id=" + kId; }

  std::string session_;
  std::string link_;
};

TEST_F(CallerOf, ASessionIsItsAccount) {
  const Caller caller = Find("_sid=" + session_, Right::kAccount);
  EXPECT_EQ(caller.account, "anna");
  EXPECT_TRUE(caller.isOwner);
  EXPECT_EQ(caller.linkedStream, "");
}

TEST_F(CallerOf, ACookieIsASession) {
  const test::Environment environment(
      test::Variables{{"HTTP_COOKIE", "theme=dark; _sid=" + session_ + "; x=1"}});
  EXPECT_EQ(Find("", Right::kAccount).account, "anna");
  EXPECT_EQ(webapi::SessionCookie(Request()), session_);
}

TEST_F(CallerOf, WithoutASessionIsUnknown) {
  for (const std::string query : {"", "_sid=", "_sid=../../etc/passwd", "_sid=short"}) {
    const Caller caller = Find(query, Right::kAccount);
    EXPECT_TRUE(caller.isLoginRequired) << query;
    EXPECT_EQ(caller.account, "") << query;
    EXPECT_FALSE(caller.isOwner) << query;
  }
}

TEST_F(CallerOf, ALinkOpensOnlyItsStream) {
  const Caller caller = Find(LinkQuery(), Right::kLink);
  EXPECT_EQ(caller.account, "anna");
  EXPECT_EQ(caller.linkedStream, kId);
  EXPECT_FALSE(caller.isOwner);
  Answer refusal = Answer::Failure(webapi::kInternal);
  EXPECT_TRUE(webapi::HasRight(caller, Right::kLink, refusal));
  EXPECT_FALSE(webapi::HasRight(caller, Right::kAccount, refusal));
  EXPECT_EQ(Find(LinkQuery(), Right::kAccount).account, "") << "a call that asks for an account";
  EXPECT_EQ(Find("_sid=" + accounts::NewSecret() + "&stream_id=" + kId, Right::kLink).account, "");
}

TEST_F(CallerOf, ALinkComesWithTheTicketThatItWasCheckedAgainst) {
  Request request;
  ASSERT_TRUE(request.AddParameters(LinkQuery()));
  request.SetCaller(webapi::FindCaller(request, Right::kLink));
  std::filesystem::remove(Path(std::string("/tmp/Mirevo/tickets/") + kId));
  const auto ticket = webapi::Ticket::Of(request);
  ASSERT_TRUE(ticket);
  EXPECT_EQ(ticket->Path(), "/films/a.mkv");
}

TEST_F(CallerOf, ALinkEndsWithThePasswordOfItsAccount) {
  ASSERT_EQ(accounts::SetPassword("anna", "another password"), accounts::Outcome::kDone);
  EXPECT_EQ(Find(LinkQuery(), Right::kLink).account, "");
}

TEST_F(CallerOf, ADamagedTicketOpensNothing) {
  Write(std::string("/tmp/Mirevo/tickets/") + kId, "{");
  EXPECT_EQ(Find(LinkQuery(), Right::kLink).account, "");
}

TEST_F(CallerOf, EveryoneIsTheOwnerIfThereAreNoAccounts) {
  ASSERT_EQ(accounts::Remove("anna"), accounts::Outcome::kDone);
  const Caller caller = Find("", Right::kOwner);
  Answer refusal = Answer::Failure(webapi::kInternal);
  EXPECT_TRUE(webapi::HasRight(caller, Right::kOwner, refusal));
  const test::Environment required(test::Variables{{"MIREVO_LOGIN", "required"}});
  EXPECT_FALSE(webapi::HasRight(Find("", Right::kOwner), Right::kOwner, refusal));
}

TEST_F(CallerOf, ADamagedListOfAccountsAdmitsNobody) {
  Write("/var/packages/Mirevo/etc/accounts", "{");
  Answer refusal = Answer::Failure(webapi::kInternal);
  EXPECT_FALSE(
      webapi::HasRight(Find("_sid=" + session_, Right::kAccount), Right::kAccount, refusal));
}

TEST_F(CallerOf, ACallForTheOwnerIsRefusedToOthers) {
  Answer refusal = Answer::Failure(webapi::kInternal);
  EXPECT_FALSE(webapi::HasRight(Account("bob"), Right::kOwner, refusal));
  EXPECT_TRUE(webapi::HasRight(Account("bob"), Right::kAccount, refusal));
  EXPECT_TRUE(webapi::HasRight(Account(""), Right::kAnyone, refusal));
}

}  // namespace
