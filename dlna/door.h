// What clients of the media server may do: the library that speaks the protocol has no limits.
#pragma once

#include <libsoup/soup.h>

#include <deque>
#include <map>
#include <string>

#include "dlna/glib_values.h"

namespace dlna {

// The longest body of a request. Those of televisions have about 500 bytes.
inline constexpr goffset kMostBody = 32768;
// The subscriptions to events that are valid at a time. A television has two or three.
inline constexpr size_t kMostSubscriptions = 64;

// The connections on which no request has come yet, or none since the last answer. The oldest one
// gives way to a new one.
inline constexpr size_t kMostIdle = 64;
// How long one of them is kept, and how long a request may take to arrive.
inline constexpr unsigned kIdleSeconds = 60;

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
  static void Arrive(SoupServer* server, SoupServerMessage* message, gpointer self);
  static void Finish(SoupServer* server, SoupServerMessage* message, gpointer self);
  static gboolean EndOldIdle(gpointer self);
  unsigned RefusalOf(SoupServerMessage* message);
  bool HasSubscriptionLeft();

  // A request that has not arrived as a whole.
  struct Coming {
    SoupServerMessage* message;
    gint64 since;  // monotonic microseconds
  };
  void EndOldestIdle();

  SoupServer* server_;
  guint timer_;
  std::deque<Coming> coming_;                    // the oldest first
  std::map<std::string, gint64> subscriptions_;  // and when they end, in monotonic microseconds
};

}  // namespace dlna
