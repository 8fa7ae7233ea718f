// What the front end remembers of an open stream, longer than the stream's directory lives.
//
// The directory of a progressive stream goes with the request that plays it. Its address must work
// again all the same: after a seek, after a pause that broke the connection, in a second player.
// The ticket "/tmp/Mirevo/tickets/<stream id>" keeps the record to make the directory anew without
// probing the film again, and says which request owns the stream now.
//
// A ticket is written aside and renamed, so that it is read without a lock. Whoever changes one
// holds it meanwhile.
#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "state/stream_directory.h"
#include "util/file_lock.h"
#include "webapi/http/answer.h"
#include "webapi/http/caller.h"
#include "webapi/http/request.h"

namespace webapi {

// 32 hexadecimal digits, "_", 8 letters or digits.
bool IsStreamId(const std::string& text);

// What a request for a stream without a ticket is told.
inline constexpr char kStreamClosed[] = "This stream has been closed. Open the film again.";

// A ticket as it was when it was read.
class Ticket {
 public:
  // Nothing when there is no such ticket. One that cannot be read is logged, left, and counts as
  // none; so does one in a folder of another user.
  static std::optional<Ticket> Read(const std::string& streamId);

  // The ticket of the stream that the request names: the one that its link was compared with, or
  // read now.
  static std::optional<Ticket> Of(const Request& request);

  // The ids of all tickets.
  static std::vector<std::string> All();

  const std::string& StreamId() const { return streamId_; }
  const Json::Value& Content() const { return content_; }
  std::string Kind() const;
  std::string Parameter(const std::string& name) const;  // "" when there is none
  int StartSeconds() const;                              // where the newest request started
  time_t LastUse() const;                                // when a request last used the stream

  // The stream's metadata record, and what requests ask of it. "" and 0 for what it lacks.
  const Json::Value& Record() const;
  std::string Path() const;
  unsigned Duration() const;  // seconds
  std::string ProfileKey() const;
  std::string ProfileValue() const;

  // Tells the stream's monitor, if it has one, that somebody is still watching.
  void MarkUse() const;

  // The newest request that plays the stream. "" and -1 when none does.
  std::string Owner() const;
  pid_t OwnerPid() const;

  LibOrvoQMX::StreamDirectory Directory() const;
  std::string Folder() const;      // its path
  std::string RecordPath() const;  // the record in it
  // Is it there, with its record?
  bool HasDirectory() const;

 protected:
  Ticket(std::string streamId, Json::Value content);

  std::string streamId_;
  Json::Value content_;
};

// A ticket that only this process changes for as long as the object lives.
class HeldTicket : public Ticket {
 public:
  // Makes the ticket of a stream that was just opened, from its directory's record; an older one is
  // replaced. `parameters`: what later requests need of the opening, as texts. Nothing when it
  // cannot be kept.
  static std::optional<HeldTicket> Create(const std::string& streamId, const std::string& kind,
                                          const Json::Value& parameters);

  // Waits until nobody else holds the ticket. Nothing when there is none then.
  static std::optional<HeldTicket> Take(const std::string& streamId);

  // False when it cannot be kept.
  bool SetOwner(const std::string& owner, pid_t pid, int startSeconds);

  void Remove() const;

 private:
  HeldTicket(std::string streamId, Json::Value content, orvo::FileLock lock);

  bool Save() const;

  orvo::FileLock lock_;
};

// What a player's addresses carry as "_sid" to open this stream; "" where no login is needed.
std::string StreamLink(const Ticket& ticket);

// Is the stream the caller's to use? It is its account's alone, and the owner's, as long as they
// may see its film. Otherwise there is an answer in `refusal`.
bool MayUse(const Caller& caller, const Ticket& stream, Answer& refusal);
// The same to close it, whoever may see the film by now.
bool MayClose(const Caller& caller, const Ticket& stream, Answer& refusal);

}  // namespace webapi
