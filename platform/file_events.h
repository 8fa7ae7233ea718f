// The events of an inotify descriptor, one by one.
#pragma once

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstddef>

namespace orvo {

// Calls `take` with each event that has come. The descriptor must not block. An event's name, which
// is there if its `len` is not 0, is valid during the call.
template <typename Take>
void ForEachFileEvent(int descriptor, const Take& take) {
  constexpr size_t kRoom = 16384;
  alignas(inotify_event) std::array<char, kRoom> events{};
  for (ssize_t size = 0; (size = read(descriptor, events.data(), events.size())) > 0;) {
    for (size_t at = 0; at < static_cast<size_t>(size);) {
      const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + at);
      take(*event);
      at += sizeof(inotify_event) + event->len;
    }
  }
}

}  // namespace orvo
