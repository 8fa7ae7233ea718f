#include "webapi/streams/client_streams.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <string>

#include "support/sysroot.h"
#include "webapi/access/ticket.h"

namespace {

using webapi::ClientStreams;

constexpr char kStream[] = "0123456789abcdef0123456789abcdef_aB3dE6gH";

class StreamsOfClients : public test::Sysroot {
 protected:
  static std::optional<ClientStreams> HoldAs(const std::string& client) {
    webapi::Caller caller;
    caller.client = client;
    webapi::Request request;
    request.SetCaller(caller);
    return ClientStreams::Hold(request);
  }
  size_t CountLists() const {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(Path("/tmp/Mirevo/tickets"))) {
      count += entry.path().filename().string().starts_with(".of-") ? 1 : 0;
    }
    return count;
  }
};

TEST_F(StreamsOfClients, AreForgottenWhenTheListIsOldAndEmpty) {
  const std::string ticket = "/tmp/Mirevo/tickets/" + std::string(kStream);
  Write(ticket, "{}");
  ASSERT_TRUE(HoldAs("account anna"));
  HoldAs("account anna")->Add(kStream);
  HoldAs("address 192.0.2.1")->Add("1123456789abcdef0123456789abcdef_aB3dE6gH");
  EXPECT_EQ(CountLists(), 2U);
  ClientStreams::ForgetEmpty(time(nullptr) - 60);
  EXPECT_EQ(CountLists(), 2U) << "they are not old";
  ClientStreams::ForgetEmpty(time(nullptr) + 60);
  EXPECT_EQ(CountLists(), 1U) << "one stream is still known";
  EXPECT_EQ(HoldAs("account anna")->Ids(), std::vector<std::string>{kStream});
  std::filesystem::remove(Path(ticket));
  ClientStreams::ForgetEmpty(time(nullptr) + 60);
  EXPECT_EQ(CountLists(), 0U);
}

}  // namespace
