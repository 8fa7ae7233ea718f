// Sealed tickets that come with a request for a stream that this box does not know.
#include "webapi/access/sealed_ticket.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "support/sysroot.h"
#include "webapi/cluster/cluster_keys.h"
#include "webapi/cluster/opening.h"
#include "webapi/cluster/seal.h"

namespace {

constexpr char kStream[] = "0123456789abcdef0123456789abcdef_AbCdEfGh";
constexpr time_t kHour = 3600;

class SealedTicket : public test::Sysroot {
 protected:
  SealedTicket() {
    Write("/etc/key", webapi::NewClusterKey());
    chmod(Path("/etc/key").c_str(), 0600);
    setenv("MIREVO_CLUSTER_KEY", Path("/etc/key").c_str(), 1);
  }
  ~SealedTicket() override { unsetenv("MIREVO_CLUSTER_KEY"); }

  // A request with a ticket of this cluster that was made so many seconds ago.
  static webapi::Request MadeAgo(time_t age) {
    const webapi::Opening opening{time(nullptr) - age, 1, 2, {{"path", "/f.mkv"}, {"kind", "HLS"}}};
    const std::string sealed =
        webapi::Seal(webapi::OwnClusterKeys().front(), kStream, webapi::Pack(opening));
    webapi::Request request;
    request.AddParameters("stream_id=" + std::string(kStream) + "&ticket=" + sealed);
    return request;
  }
};

TEST_F(SealedTicket, CountsForADayAndIsGoneThen) {
  if (webapi::OwnClusterKeys().empty()) {
    GTEST_SKIP() << "a process reads its keys once, and an earlier test had none";
  }
  webapi::Request fresh = MadeAgo(23 * kHour);
  EXPECT_FALSE(webapi::RefuseSealedTicket(fresh));
  EXPECT_EQ(fresh.SealedTicket()["record"]["path"], "/f.mkv");
  webapi::Request old = MadeAgo(25 * kHour);
  const auto refusal = webapi::RefuseSealedTicket(old);
  ASSERT_TRUE(refusal);
  EXPECT_TRUE(refusal->IsFor(webapi::kGone));
}

TEST_F(SealedTicket, IsClosedByAMarkThatIsNotOlder) {
  if (webapi::OwnClusterKeys().empty()) {
    GTEST_SKIP() << "a process reads its keys once, and an earlier test had none";
  }
  const auto isClosed = [](time_t age) {
    webapi::Request request = MadeAgo(age);
    EXPECT_FALSE(webapi::RefuseSealedTicket(request));
    const auto sealed = webapi::Ticket::Of(request);
    webapi::Ticket::MarkClosed(kStream);
    return webapi::IsClosedHere(*sealed);
  };
  EXPECT_TRUE(isClosed(kHour));
  EXPECT_FALSE(isClosed(-60)) << "it was opened again later";
}

TEST_F(SealedTicket, OfAClockThatIsAheadIsGone) {
  if (webapi::OwnClusterKeys().empty()) {
    GTEST_SKIP() << "a process reads its keys once, and an earlier test had none";
  }
  webapi::Request fair = MadeAgo(-240);
  EXPECT_FALSE(webapi::RefuseSealedTicket(fair));
  webapi::Request tomorrows = MadeAgo(-24 * kHour);
  const auto refusal = webapi::RefuseSealedTicket(tomorrows);
  ASSERT_TRUE(refusal);
  EXPECT_TRUE(refusal->IsFor(webapi::kGone));
}

}  // namespace
