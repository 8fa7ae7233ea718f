#include "webapi/access/ticket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <functional>

#include "support/log_capture.h"
#include "support/processes.h"
#include "support/sysroot.h"

namespace {

using webapi::Answer;
using webapi::Caller;
using webapi::HeldTicket;
using webapi::Ticket;

constexpr char kId[] = "0123456789abcdef0123456789abcdef_aB3dE6gH";
constexpr char kOther[] = "0123456789abcdef0123456789abcdef_zzzzzzzz";
constexpr char kFolder[] = "/tmp/Mirevo/tickets";
constexpr char kSomebody[] = "/tmp/Mirevo/tickets/0123456789abcdef0123456789abcdef_aB3dE6gH";
constexpr uid_t kStranger = 65534;
constexpr int kQuietMilliseconds = 300;

// Somebody who has to log in, and has.
Caller Account(const std::string& name) {
  Caller caller;
  caller.isLoginRequired = true;
  caller.account = name;
  return caller;
}

class Tickets : public test::Sysroot {
 protected:
  // The stream is opened.
  std::optional<HeldTicket> Open(const char* account = "anna") const {
    Json::Value record(Json::objectValue);
    record["path"] = "/films/a.mkv";
    record["duration"] = 60;
    record["profile_key"] = "hls_remux";
    record["profile_value"] = "-vcodec copy";
    WriteJson("/tmp/Mirevo/HLS/" + std::string(kId) + "/video_metadata", record);
    Json::Value parameters(Json::objectValue);
    parameters["account"] = account;
    return HeldTicket::Create(kId, "HLS", parameters);
  }
  mode_t ModeOf(const std::string& path) const {
    struct stat status {};
    return stat(Path(path).c_str(), &status) == 0 ? status.st_mode & ACCESSPERMS : 0;
  }

  // The owner in the ticket that another process gets which waits for it during `change`; "none"
  // where it gets no ticket.
  static std::string OwnerAfter(const std::function<void(HeldTicket&)>& change) {
    auto held = HeldTicket::Take(kId);
    test::Pipe answer;
    test::Child waiting([&] {
      // Forked with the lock: only a file of its own makes it wait.
      held.reset();
      const auto second = HeldTicket::Take(kId);
      answer.Write(second ? second->Owner() : "none");
    });
    pollfd early{answer.ReadEnd(), POLLIN, 0};
    EXPECT_EQ(poll(&early, 1, kQuietMilliseconds), 0) << "it does not wait";
    change(held.value());
    held.reset();
    const std::string owner = answer.ReadToEnd();
    EXPECT_EQ(waiting.Wait(), 0);
    return owner;
  }
};

TEST_F(Tickets, TellWhatTheStreamWasOpenedFor) {
  ASSERT_TRUE(Open());
  const auto ticket = Ticket::Read(kId);
  ASSERT_TRUE(ticket);
  EXPECT_EQ(ticket->StreamId(), kId);
  EXPECT_EQ(ticket->Kind(), "HLS");
  EXPECT_EQ(ticket->Parameter("account"), "anna");
  EXPECT_EQ(ticket->Parameter("absent"), "");
  EXPECT_EQ(ticket->Path(), "/films/a.mkv");
  EXPECT_EQ(ticket->Duration(), 60U);
  EXPECT_EQ(ticket->ProfileKey(), "hls_remux");
  EXPECT_EQ(ticket->ProfileValue(), "-vcodec copy");
  EXPECT_EQ(ticket->OwnerPid(), -1);
  EXPECT_EQ(Ticket::All(), std::vector<std::string>{kId});
}

TEST_F(Tickets, AreReadableOnlyByTheirUser) {
  umask(0);
  ASSERT_TRUE(Open());
  EXPECT_EQ(ModeOf(kFolder), 0700U);
  EXPECT_EQ(ModeOf(kSomebody), 0600U);
  EXPECT_EQ(ModeOf(std::string(kFolder) + "/.locks"), 0600U);
  umask(022);
}

TEST_F(Tickets, OfEarlierVersionsAreReadAndTheirFolderIsClosedByTheNextOpening) {
  Write(
      std::string("/tmp/Mirevo/tickets/") + kOther,
      R"({"kind":"HTTP","parameters":{},"record":{"path":"/films/b.mkv"},"owner":"x","owner_pid":7})"
      "\n");
  ASSERT_EQ(chmod(Path(kFolder).c_str(), 0777), 0);
  const auto ticket = Ticket::Read(kOther);
  ASSERT_TRUE(ticket);
  EXPECT_EQ(ticket->Path(), "/films/b.mkv");
  EXPECT_EQ(ticket->OwnerPid(), 7);
  ASSERT_TRUE(Open());
  EXPECT_EQ(ModeOf(kFolder), 0700U);
}

TEST_F(Tickets, AreReadWhileAnotherProcessHoldsThem) {
  ASSERT_TRUE(Open());
  const auto held = HeldTicket::Take(kId);
  ASSERT_TRUE(held);
  test::InChild([] { EXPECT_TRUE(Ticket::Read(kId)); });
}

TEST_F(Tickets, AreHeldByOneProcessAtATime) {
  ASSERT_TRUE(Open());
  EXPECT_EQ(OwnerAfter([](HeldTicket& held) { EXPECT_TRUE(held.SetOwner("first", getpid(), 0)); }),
            "first");
}

TEST_F(Tickets, ThatAreRemovedAreGoneForWaitingRequests) {
  ASSERT_TRUE(Open());
  EXPECT_EQ(OwnerAfter([](HeldTicket& held) { held.Remove(); }), "none");
  EXPECT_FALSE(Exists(kSomebody));
}

TEST_F(Tickets, ThatAreDamagedAreNothingForWaitingRequests) {
  ASSERT_TRUE(Open());
  EXPECT_EQ(OwnerAfter([this](HeldTicket&) { Write(kSomebody, "{"); }), "none");
  EXPECT_EQ(Read(kSomebody), "{");
}

TEST_F(Tickets, ThatAreRemovedAreGone) {
  ASSERT_TRUE(Open());
  auto held = HeldTicket::Take(kId);
  ASSERT_TRUE(held);
  held->Remove();
  held.reset();
  EXPECT_FALSE(Ticket::Read(kId));
  EXPECT_FALSE(HeldTicket::Take(kId));
  EXPECT_TRUE(Ticket::All().empty());
  EXPECT_TRUE(test::TakeLogTexts().empty());
}

TEST_F(Tickets, ThatAreDamagedAreReportedAndLeft) {
  for (const char* content : {"", "{", "[]", "null", "7", R"({"kind":"HLS"})",
                              R"({"kind":"HLS","record":[]})", R"({"kind":7,"record":{}})"}) {
    Write(kSomebody, content);
    test::TakeLog();
    EXPECT_FALSE(Ticket::Read(kId)) << content;
    EXPECT_FALSE(HeldTicket::Take(kId)) << content;
    const auto lines = test::TakeLogTexts();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
      return line.find("The ticket [" + Path(kSomebody) + "] cannot be read") != std::string::npos;
    })) << content;
    EXPECT_EQ(Read(kSomebody), content);
  }
}

TEST_F(Tickets, LackTheValuesThatTheirRecordLacks) {
  Write(kSomebody,
        R"({"kind":"HLS","record":{"path":7,"duration":"x"},"parameters":[1],"start":"x"})");
  const auto ticket = Ticket::Read(kId);
  ASSERT_TRUE(ticket);
  EXPECT_EQ(ticket->Path(), "");
  EXPECT_EQ(ticket->Duration(), 0U);
  EXPECT_EQ(ticket->Parameter("account"), "");
  EXPECT_EQ(ticket->StartSeconds(), 0);
}

TEST_F(Tickets, InTheFolderOfAnotherUserAreIgnored) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can act for two users";
  }
  ASSERT_TRUE(Open());
  ASSERT_EQ(chmod(Path(kFolder).c_str(), 0755), 0);
  ASSERT_EQ(chmod(Path(kSomebody).c_str(), 0644), 0);
  test::InChild([] {
    ASSERT_EQ(seteuid(kStranger), 0);
    EXPECT_FALSE(Ticket::Read(kId));
  });
  EXPECT_TRUE(Ticket::Read(kId));
}

TEST_F(Tickets, AreNamedOnlyByStreamIds) {
  EXPECT_TRUE(webapi::IsStreamId(kId));
  for (const std::string id :
       {"", "../../etc/passwd", "0123456789abcdef0123456789abcdef_aB3dE6g",
        "0123456789ABCDEF0123456789abcdef_aB3dE6gH", "0123456789abcdef0123456789abcdef_aB3dE6g/"}) {
    EXPECT_FALSE(webapi::IsStreamId(id)) << id;
    EXPECT_FALSE(Ticket::Read(id)) << id;
    EXPECT_FALSE(HeldTicket::Take(id)) << id;
  }
}

TEST_F(Tickets, RememberTheStreamsThatWereClosedLast) {
  const std::string stem(kId, 33);
  const auto id = [&](int number) { return stem + "closed0" + std::to_string(number); };
  for (int number = 1; number <= 4; ++number) {
    Ticket::MarkClosed(id(number));
    const timespec then{1000 * number, 0};
    const timespec times[] = {then, then};
    const std::string mark = Path("/tmp/Mirevo/tickets/" + id(number) + ".closed");
    ASSERT_EQ(utimensat(AT_FDCWD, mark.c_str(), times, 0), 0);
  }
  Ticket::ForgetClosed(2000, 2);
  EXPECT_EQ(Ticket::ClosedAt(id(1)), 0) << "too old";
  EXPECT_EQ(Ticket::ClosedAt(id(2)), 0) << "one too many";
  EXPECT_EQ(Ticket::ClosedAt(id(3)), 3000);
  EXPECT_EQ(Ticket::ClosedAt(id(4)), 4000);
  Ticket::ForgetClosed(4000, 2);
  EXPECT_EQ(Ticket::ClosedAt(id(3)), 0);
  EXPECT_EQ(Ticket::ClosedAt(id(4)), 4000);
}

TEST_F(Tickets, BelongToTheirAccountAndTheOwner) {
  ASSERT_TRUE(Open());
  const auto ticket = Ticket::Read(kId);
  ASSERT_TRUE(ticket);
  Answer refusal = Answer::Failure(webapi::kInternal);
  Caller anna = Account("anna");
  Caller bob = Account("bob");
  EXPECT_TRUE(webapi::MayUse(anna, *ticket, refusal));
  EXPECT_FALSE(webapi::MayUse(bob, *ticket, refusal));
  EXPECT_FALSE(webapi::MayClose(bob, *ticket, refusal));
  bob.isOwner = true;
  EXPECT_TRUE(webapi::MayUse(bob, *ticket, refusal));
  EXPECT_TRUE(webapi::MayUse(Caller{}, *ticket, refusal)) << "there are no accounts";
  // She may no longer see the film.
  anna.roots = {"/elsewhere"};
  EXPECT_FALSE(webapi::MayUse(anna, *ticket, refusal));
  EXPECT_TRUE(webapi::MayClose(anna, *ticket, refusal));
  // A link opens its own stream.
  Caller link = Account("anna");
  link.linkedStream = kOther;
  EXPECT_FALSE(webapi::MayUse(link, *ticket, refusal));
  link.linkedStream = kId;
  EXPECT_TRUE(webapi::MayUse(link, *ticket, refusal));
}

}  // namespace
