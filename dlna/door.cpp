#include "dlna/door.h"

#include <cstdlib>
#include <string_view>

#include "platform/network.h"

namespace dlna {
namespace {

constexpr char kBodySize[] = "orvo-body-size";
constexpr int kLongestSubscription = 1800;  // seconds
constexpr guint kIdleLookSeconds = 5;

std::string HeaderOf(SoupMessageHeaders* headers, const char* name) {
  const char* const value = soup_message_headers_get_one(headers, name);
  return value != nullptr ? value : "";
}

bool IsLocal(SoupServerMessage* message) {
  const char* const client = soup_server_message_get_remote_host(message);
  return client != nullptr && orvo::IsPrivateAddress(client);
}

// A body whose length is not announced is refused, too.
bool IsShort(SoupMessageHeaders* headers) {
  const SoupEncoding encoding = soup_message_headers_get_encoding(headers);
  return encoding == SOUP_ENCODING_NONE ||
         (encoding == SOUP_ENCODING_CONTENT_LENGTH &&
          soup_message_headers_get_content_length(headers) <= kMostBody);
}

bool HasMethod(SoupServerMessage* message, const char* method) {
  return soup_server_message_get_method(message) == std::string_view(method);
}

// Of "Second-300", in microseconds.
gint64 DurationOf(const std::string& timeout) {
  const auto dash = timeout.find('-');
  const long seconds =
      dash == std::string::npos ? 0 : std::strtol(timeout.c_str() + dash + 1, nullptr, 10);
  const bool isGood = seconds > 0 && seconds <= kLongestSubscription;
  return (isGood ? seconds : kLongestSubscription) * G_USEC_PER_SEC;
}

// Ends the connection: what else the client sends is not read.
void HangUp(SoupServerMessage* message) {
  if (GSocket* const socket = soup_server_message_get_socket(message)) {
    g_socket_shutdown(socket, TRUE, FALSE, nullptr);
  }
}

}  // namespace

Door::Door(SoupServer* server)
    : server_(server), timer_(g_timeout_add_seconds(kIdleLookSeconds, EndOldIdle, this)) {
  g_signal_connect(server_, "request-started", G_CALLBACK(Begin), this);
  g_signal_connect(server_, "request-read", G_CALLBACK(Arrive), this);
  g_signal_connect(server_, "request-aborted", G_CALLBACK(Arrive), this);
  g_signal_connect(server_, "request-finished", G_CALLBACK(Finish), this);
}

Door::~Door() {
  g_source_remove(timer_);
  g_signal_handlers_disconnect_by_data(server_, this);
}

// The library calls this as soon as it waits for a request on a connection.
void Door::Begin(SoupServer* /*server*/, SoupServerMessage* message, gpointer self) {
  g_signal_connect(message, "got-headers", G_CALLBACK(Look), self);
  g_signal_connect(message, "got-chunk", G_CALLBACK(Count), self);
  auto& door = *static_cast<Door*>(self);
  door.coming_.push_back({message, g_get_monotonic_time()});
  if (door.coming_.size() > kMostIdle) {
    door.EndOldestIdle();
  }
}

void Door::Arrive(SoupServer* /*server*/, SoupServerMessage* message, gpointer self) {
  std::erase_if(static_cast<Door*>(self)->coming_,
                [&](const Coming& one) { return one.message == message; });
}

void Door::EndOldestIdle() {
  SoupServerMessage* const message = coming_.front().message;
  coming_.pop_front();
  if (GSocket* const socket = soup_server_message_get_socket(message)) {
    g_socket_shutdown(socket, TRUE, TRUE, nullptr);
  }
}

gboolean Door::EndOldIdle(gpointer self) {
  auto& door = *static_cast<Door*>(self);
  const gint64 oldest = g_get_monotonic_time() - gint64{kIdleSeconds} * G_USEC_PER_SEC;
  while (!door.coming_.empty() && door.coming_.front().since < oldest) {
    door.EndOldestIdle();
  }
  return G_SOURCE_CONTINUE;
}

void Door::Look(SoupServerMessage* message, gpointer self) {
  const unsigned refusal = static_cast<Door*>(self)->RefusalOf(message);
  if (refusal != 0) {
    soup_message_body_set_accumulate(soup_server_message_get_request_body(message), FALSE);
    soup_message_headers_replace(soup_server_message_get_response_headers(message), "Connection",
                                 "close");
    soup_server_message_set_status(message, refusal, nullptr);
  }
}

unsigned Door::RefusalOf(SoupServerMessage* message) {
  SoupMessageHeaders* const headers = soup_server_message_get_request_headers(message);
  if (!IsLocal(message)) {
    return SOUP_STATUS_FORBIDDEN;
  }
  if (!IsShort(headers)) {
    return SOUP_STATUS_REQUEST_ENTITY_TOO_LARGE;
  }
  const bool isNew = HasMethod(message, "SUBSCRIBE") && HeaderOf(headers, "SID").empty();
  return isNew && !HasSubscriptionLeft() ? SOUP_STATUS_SERVICE_UNAVAILABLE : 0;
}

bool Door::HasSubscriptionLeft() {
  const gint64 now = g_get_monotonic_time();
  std::erase_if(subscriptions_, [&](const auto& entry) { return entry.second <= now; });
  return subscriptions_.size() < kMostSubscriptions;
}

// The client of a refused request may go on sending.
void Door::Count(SoupServerMessage* message, GBytes* chunk, gpointer /*self*/) {
  const gsize size =
      GPOINTER_TO_SIZE(g_object_get_data(G_OBJECT(message), kBodySize)) + g_bytes_get_size(chunk);
  g_object_set_data(G_OBJECT(message), kBodySize, GSIZE_TO_POINTER(size));
  if (size > static_cast<gsize>(kMostBody)) {
    HangUp(message);
  }
}

void Door::Finish(SoupServer* server, SoupServerMessage* message, gpointer self) {
  Arrive(server, message, self);
  auto& subscriptions = static_cast<Door*>(self)->subscriptions_;
  if (soup_server_message_get_status(message) != SOUP_STATUS_OK) {
    return;
  }
  SoupMessageHeaders* const answer = soup_server_message_get_response_headers(message);
  if (HasMethod(message, "UNSUBSCRIBE")) {
    subscriptions.erase(HeaderOf(soup_server_message_get_request_headers(message), "SID"));
  } else if (HasMethod(message, "SUBSCRIBE")) {
    subscriptions[HeaderOf(answer, "SID")] =
        g_get_monotonic_time() + DurationOf(HeaderOf(answer, "Timeout"));
  }
}

}  // namespace dlna
