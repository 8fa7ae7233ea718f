#include "webapi/streams/growing_segment.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "support/environment.h"
#include "support/sysroot.h"

namespace {

constexpr char kUnfinished[] = "/stream/segment-1.m4s.part";
constexpr char kFinished[] = "/stream/segment-1.m4s";
const std::string kPair("\0\0\0\x0cmoofaaaa\0\0\0\x0cmdatbbbb", 24);
const std::string kHalf("\0\0\0\x0cmoofaaaa\0\0\0\x0cmdat", 20);

// Leaves this process one more descriptor, so that it can open the segment and no inotify instance.
class FewDescriptors {
 public:
  FewDescriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const int next = dup(STDIN_FILENO);
    close(next);
    const rlimit few{static_cast<rlim_t>(next) + 1, before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
  }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

class GrowingSegment : public test::Sysroot {
 protected:
  void Finish() const { std::filesystem::rename(Path(kUnfinished), Path(kFinished)); }

  // The body of the answer. `look` is what tells whether the segment still comes.
  std::string Body(const std::function<bool()>& look, bool isChunked = true) {
    const test::Environment environment(
        isChunked ? std::map<std::string, std::string>{{"MIREVO_CHUNKED", "1"}}
                  : std::map<std::string, std::string>{});
    testing::internal::CaptureStdout();
    auto few = isBlind_ ? std::make_unique<FewDescriptors>() : nullptr;
    hasSent_ = webapi::SendGrowing(Path(kUnfinished), Path(kFinished), look,
                                   [] { return webapi::OpenAnswer("video/mp4", ""); });
    few.reset();
    const std::string answer = testing::internal::GetCapturedStdout();
    const auto end = answer.find("\r\n\r\n");
    return end == std::string::npos ? "" : answer.substr(end + 4);
  }

  bool hasSent_ = false;
  bool isBlind_ = false;  // the kernel tells no changes
};

TEST_F(GrowingSegment, IsSentPairByPairUntilItIsWhole) {
  Write(kUnfinished, kPair);
  int looks = 0;
  const auto grow = [&] {
    ++looks;
    if (looks < 3) {
      Write(kUnfinished, looks == 1 ? kPair : kPair + kHalf);
    } else {
      Write(kUnfinished, kPair + kPair);
      Finish();
    }
    return true;
  };
  EXPECT_EQ(Body(grow), "18\r\n" + kPair + "\r\n18\r\n" + kPair + "\r\n0\r\n\r\n");
  EXPECT_TRUE(hasSent_);
}

TEST_F(GrowingSegment, IsSentAlsoIfTheKernelTellsNoChanges) {
  isBlind_ = true;
  Write(kUnfinished, kPair);
  int looks = 0;
  const auto finish = [&] {
    if (++looks == 2) {
      Finish();
    }
    return true;
  };
  EXPECT_EQ(Body(finish), "18\r\n" + kPair + "\r\n0\r\n\r\n");
  EXPECT_TRUE(hasSent_);
}

TEST_F(GrowingSegment, HasNoEndIfItsRunIsLost) {
  Write(kUnfinished, kPair + kHalf);
  EXPECT_EQ(Body([] { return false; }), "18\r\n" + kPair + "\r\n");
  EXPECT_TRUE(hasSent_);
}

TEST_F(GrowingSegment, IsWholeIfItsRunEndsWithIt) {
  Write(kUnfinished, kPair);
  const auto finish = [this] {
    Finish();
    return false;
  };
  EXPECT_EQ(Body(finish), "18\r\n" + kPair + "\r\n0\r\n\r\n");
}

TEST_F(GrowingSegment, IsPlainForOtherWebServers) {
  Write(kUnfinished, kPair);
  const auto finish = [this] {
    Finish();
    return true;
  };
  EXPECT_EQ(Body(finish, false), kPair);
}

TEST_F(GrowingSegment, IsNoAnswerBeforeItsFirstPair) {
  Write(kUnfinished, kHalf);
  EXPECT_EQ(Body([] { return false; }), "");
  EXPECT_FALSE(hasSent_);
}

}  // namespace
