#include "util/place.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "support/processes.h"

namespace {

using orvo::Place;

class Places : public ::testing::Test {
 protected:
  Places() {
    std::string name = (std::filesystem::temp_directory_path() / "places-XXXXXX").string();
    folder_ = mkdtemp(name.data());
    file_ = folder_ + "/queue";
  }
  ~Places() override { std::filesystem::remove_all(folder_); }

  std::string folder_;
  std::string file_;
};

TEST_F(Places, AreAsManyAsTheQueueHas) {
  auto first = Place::Take(file_, {2, 8, 0});
  const auto second = Place::Take(file_, {2, 8, 0});
  EXPECT_TRUE(first);
  EXPECT_TRUE(second);
  EXPECT_FALSE(Place::Take(file_, {2, 8, 0}));
  first.reset();
  EXPECT_TRUE(Place::Take(file_, {2, 8, 0}));
}

TEST_F(Places, WakeAWaitingProcessWhenTheyAreFree) {
  auto held = Place::Take(file_, {1, 8, 0});
  ASSERT_TRUE(held);
  std::thread waiter([&] { EXPECT_TRUE(Place::Take(file_, {1, 8, 60000})); });
  held.reset();
  waiter.join();
}

TEST_F(Places, AreFreeWhenTheirProcessHasEnded) {
  test::InChild([&] { EXPECT_TRUE(Place::Take(file_, {1, 0, 0})); });
  EXPECT_TRUE(Place::Take(file_, {1, 0, 0}));
}

TEST_F(Places, AreNotWaitedForLongerThanTheQueueSays) {
  const auto held = Place::Take(file_, {1, 8, 0});
  ASSERT_TRUE(held);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(Place::Take(file_, {1, 8, 50}));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(Places, AreNotWaitedForIfTheQueueIsFull) {
  const auto held = Place::Take(file_, {1, 0, 0});
  ASSERT_TRUE(held);
  EXPECT_FALSE(Place::Take(file_, {1, 0, 60000}));
}

TEST_F(Places, FollowNoLink) {
  std::filesystem::create_symlink(folder_ + "/elsewhere", file_);
  EXPECT_FALSE(Place::Take(file_, {1, 0, 0}));
  EXPECT_FALSE(std::filesystem::exists(folder_ + "/elsewhere"));
}

}  // namespace
