// What clients of the media server may do: the library that speaks the protocol has no limits.
#pragma once

#include <libsoup/soup.h>

#include <map>
#include <string>

#include "dlna/glib_values.h"

namespace dlna {

// The longest body of a request. Those of televisions have about 500 bytes.
inline constexpr goffset kMostBody = 32768;
// The subscriptions to events that are valid at a time. A television has two or three.
inline constexpr size_t kMostSubscriptions = 64;

// Refuses what exceeds this, and all clients without an address of a local network.
class Door {
 public:
  // `server`: one that has not answered yet.
  explicit Door(SoupServer* server);
  ~Door();
  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;

 private:
  static void Begin(SoupServer* server, SoupServerMessage* message, gpointer self);
  static void Look(SoupServerMessage* message, gpointer self);
  static void Count(SoupServerMessage* message, GBytes* chunk, gpointer self);
  static void Finish(SoupServer* server, SoupServerMessage* message, gpointer self);
  unsigned RefusalOf(SoupServerMessage* message);
  bool HasSubscriptionLeft();

  SoupServer* server_;
  std::map<std::string, gint64> subscriptions_;  // and when they end, in monotonic microseconds
};

}  // namespace dlna
