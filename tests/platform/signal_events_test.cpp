#include "platform/signal_events.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <csignal>

namespace {

bool IsReadable(const orvo::SignalEvents& signals) {
  pollfd event{signals.Descriptor(), POLLIN, 0};
  return poll(&event, 1, 0) == 1;
}

TEST(SignalEvents, GivesEachSignalThatHasComeOnce) {
  orvo::SignalEvents signals({SIGUSR1, SIGUSR2});
  ASSERT_TRUE(signals.IsOpen());
  EXPECT_EQ(signals.Take(), 0);
  raise(SIGUSR2);
  EXPECT_TRUE(IsReadable(signals));
  EXPECT_EQ(signals.Take(), SIGUSR2);
  EXPECT_FALSE(IsReadable(signals));
  EXPECT_EQ(signals.Take(), 0);
}

}  // namespace
