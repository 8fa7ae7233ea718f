// Asks the service for folders and films (webapi/television/browse.h).
//
// The service opens the films and checks what televisions may see. This program has no other access
// to either.
#pragma once

#include <json/value.h>
#include <libsoup/soup.h>

#include <deque>
#include <functional>
#include <string>

#include "dlna/glib_values.h"

namespace dlna {

struct Question {
  std::string id;         // of the object
  bool children = false;  // what is in it, or the object itself
  unsigned start = 0;
  unsigned count = 0;  // 0 for as many as possible
};

struct Reply {
  unsigned status = 0;  // of HTTP; 0 if the service did not answer
  Json::Value data;     // after a success
};

class LibraryClient {
 public:
  using Take = std::function<void(const Reply& reply)>;

  // `service`: the service's address ("http://127.0.0.1:8096"). `word`: the secret of the settings.
  LibraryClient(std::string service, std::string word);

  // Calls `take` later with the answer. Some questions are asked at a time and some wait; with more
  // it returns false and does not call.
  bool Ask(const Question& question, Take take);

 private:
  struct Asked;

  void Send(const Question& question, Take take);
  static void Receive(GObject* source, GAsyncResult* result, gpointer asked);
  void SendNext();

  std::string service_;
  std::string word_;
  Object<SoupSession> session_;
  int underWay_ = 0;
  std::deque<std::pair<Question, Take>> waiting_;
};

}  // namespace dlna
