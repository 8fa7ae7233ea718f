// The streams that one client has opened: an account or, if there are no accounts, an address.
//
// A client that opens streams and never closes them leaves a ticket and a directory each. The file
// "/tmp/Mirevo/tickets/.of-<MD5 of the client>" has their ids, one in a line, the oldest first, so
// that they can be counted without a look at all tickets.
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "util/file_lock.h"
#include "webapi/http/request.h"

namespace webapi {

// A list that only this process can change while the object exists.
class ClientStreams {
 public:
  // Removes the lists without streams that have not changed since `before`: a new client has none.
  static void ForgetEmpty(time_t before);

  // Waits for the list of the request's client. Returns nothing if it cannot be had in time.
  static std::optional<ClientStreams> Hold(const Request& request);

  // The ids of the streams that still have a ticket, the oldest first.
  const std::vector<std::string>& Ids() const { return ids_; }

  // Adds a stream, if it is not in the list. A full disk is not a failure.
  void Add(const std::string& streamId);

 private:
  static std::optional<ClientStreams> HoldFile(const std::string& name);
  ClientStreams(std::string path, const std::string& lines, orvo::FileLock lock);

  std::string path_;
  orvo::FileLock lock_;
  std::vector<std::string> ids_;
};

}  // namespace webapi
