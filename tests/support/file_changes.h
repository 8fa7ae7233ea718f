// Waits for what other processes write.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>

#include "platform/unique_fd.h"

namespace test {

// Waits until `holds`, and looks at each change below the folder, which is made if it is missing.
// Fails the calling test if nothing changes for a long time.
inline void AwaitChange(const std::string& folder, const std::function<bool()>& holds) {
  constexpr int kPatience = 100000;  // milliseconds; longer than any wait here
  std::filesystem::create_directories(folder);
  const orvo::UniqueFd changes(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  inotify_add_watch(changes.Get(), folder.c_str(),
                    IN_ALL_EVENTS & ~(IN_OPEN | IN_ACCESS | IN_CLOSE));
  while (!holds()) {
    pollfd event{changes.Get(), POLLIN, 0};
    ASSERT_EQ(poll(&event, 1, kPatience), 1) << "nothing happens in " << folder;
    std::array<char, 4096> events{};
    while (read(changes.Get(), events.data(), events.size()) > 0) {
    }
  }
}

}  // namespace test
