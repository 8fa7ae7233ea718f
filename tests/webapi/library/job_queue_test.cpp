#include "webapi/library/job_queue.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

namespace {

using webapi::JobPlace;

class JobQueue : public ::testing::Test {
 protected:
  JobQueue() {
    std::string name = (std::filesystem::temp_directory_path() / "job-queue-XXXXXX").string();
    folder_ = mkdtemp(name.data());
    file_ = folder_ + "/.jobs";
  }
  ~JobQueue() override { std::filesystem::remove_all(folder_); }

  std::string folder_;
  std::string file_;
};

TEST_F(JobQueue, GivesAsManyPlacesAsItHas) {
  auto first = JobPlace::Take(file_, 2, 8, 0);
  const auto second = JobPlace::Take(file_, 2, 8, 0);
  EXPECT_TRUE(first);
  EXPECT_TRUE(second);
  EXPECT_FALSE(JobPlace::Take(file_, 2, 8, 0));
  first.reset();
  EXPECT_TRUE(JobPlace::Take(file_, 2, 8, 0));
}

TEST_F(JobQueue, WakesAWaitingRequestWhenAPlaceIsFree) {
  auto held = JobPlace::Take(file_, 1, 8, 0);
  ASSERT_TRUE(held);
  std::thread waiter([&] { EXPECT_TRUE(JobPlace::Take(file_, 1, 8, 60000)); });
  held.reset();
  waiter.join();
}

TEST_F(JobQueue, FollowsNoLink) {
  std::filesystem::create_symlink(folder_ + "/elsewhere", file_);
  EXPECT_FALSE(JobPlace::Take(file_, 1, 8, 0));
  EXPECT_FALSE(std::filesystem::exists(folder_ + "/elsewhere"));
}

TEST_F(JobQueue, RefusesARequestIfTheQueueIsFull) {
  const auto held = JobPlace::Take(file_, 1, 0, 0);
  ASSERT_TRUE(held);
  EXPECT_FALSE(JobPlace::Take(file_, 1, 0, 60000));
}

}  // namespace
