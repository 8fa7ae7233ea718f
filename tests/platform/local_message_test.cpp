#include "platform/local_message.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/io.h"
#include "support/sysroot.h"

namespace {

using orvo::UniqueFd;

class LocalMessages : public test::Sysroot {
 protected:
  std::string Place() const { return Path("/socket"); }
  // Both ends of a connection.
  void Connect() {
    listener_ = orvo::ListenLocally(Place());
    ASSERT_TRUE(listener_.IsOpen());
    near_ = orvo::ConnectLocally(Place());
    far_ = orvo::AcceptLocally(listener_);
    ASSERT_TRUE(near_.IsOpen() && far_.IsOpen());
  }

  UniqueFd listener_;
  UniqueFd near_;
  UniqueFd far_;
};

TEST_F(LocalMessages, ArriveWholeWithTheirFiles) {
  Connect();
  UniqueFd readEnd;
  UniqueFd writeEnd;
  ASSERT_TRUE(orvo::OpenPipe(readEnd, writeEnd));
  ASSERT_TRUE(orvo::SendLocally(near_, std::string("a\0b", 3), {writeEnd.Get()}));
  ASSERT_TRUE(orvo::SendLocally(near_, "second"));
  writeEnd.Reset();
  auto first = orvo::ReceiveLocally(far_);
  ASSERT_TRUE(first && first->files.size() == 1);
  EXPECT_EQ(first->text, std::string("a\0b", 3));
  EXPECT_NE(fcntl(first->files[0].Get(), F_GETFD) & FD_CLOEXEC, 0);
  ASSERT_TRUE(orvo::WriteAll(first->files[0].Get(), "x"));
  char byte = '\0';
  EXPECT_EQ(read(readEnd.Get(), &byte, 1), 1);
  const auto second = orvo::ReceiveLocally(far_);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->text, "second");
  EXPECT_TRUE(second->files.empty());
}

TEST_F(LocalMessages, AreNotWaitedFor) {
  Connect();
  EXPECT_FALSE(orvo::ReceiveLocally(far_));
  EXPECT_FALSE(orvo::AcceptLocally(listener_).IsOpen());
}

TEST_F(LocalMessages, HaveABoundedLength) {
  Connect();
  EXPECT_FALSE(orvo::SendLocally(near_, ""));
  EXPECT_FALSE(orvo::SendLocally(near_, std::string(orvo::kLongestMessage + 1, 'x')));
  EXPECT_EQ(errno, EMSGSIZE);
  ASSERT_TRUE(orvo::SendLocally(near_, std::string(orvo::kLongestMessage, 'x')));
  const auto whole = orvo::ReceiveLocally(far_);
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->text.size(), orvo::kLongestMessage);
}

TEST_F(LocalMessages, GoNowhereOnceTheOtherSideIsGone) {
  Connect();
  far_.Reset();
  EXPECT_FALSE(orvo::SendLocally(near_, "x"));
  EXPECT_FALSE(orvo::ReceiveLocally(near_));
}

TEST_F(LocalMessages, HaveASocketThatOnlyItsUserMayOpen) {
  Connect();
  struct stat status {};
  ASSERT_EQ(stat(Place().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(LocalMessages, TakeThePlaceOfAnEndedListenerOnly) {
  Connect();
  listener_.Reset();
  EXPECT_FALSE(orvo::ConnectLocally(Place()).IsOpen());
  EXPECT_EQ(errno, ECONNREFUSED);
  Connect();
  Write("/file", "content");
  EXPECT_FALSE(orvo::ListenLocally(Path("/file")).IsOpen());
  EXPECT_EQ(Read("/file"), "content");
}

TEST_F(LocalMessages, NeedAPathThatFits) {
  EXPECT_FALSE(orvo::ListenLocally(Path("/" + std::string(120, 'x'))).IsOpen());
  EXPECT_EQ(errno, ENAMETOOLONG);
}

}  // namespace
