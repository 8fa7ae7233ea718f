// What the front end remembers of an open stream, longer than the stream's directory lives.
//
// The directory of a progressive stream goes with the request that plays it. Its address must work
// again all the same: after a seek, after a pause that broke the connection, in a second player.
// The ticket
// "/tmp/Mirevo/tickets/<stream id>" keeps the record to make the directory anew without probing the
// film again, and says which request owns the stream now. All changes are made under its lock.
#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "policy/lock.h"
#include "state/stream_directory.h"
#include "webapi/http/answer.h"
#include "webapi/http/caller.h"

namespace webapi {

// 32 hexadecimal digits, "_", 8 letters or digits.
bool IsStreamId(const std::string& text);

// What a request for a stream without a ticket is told.
inline constexpr char kStreamClosed[] = "This stream has been closed. Open the film again.";

class Ticket {
 public:
  // Makes the ticket of a stream that was just opened, from its directory's record.
  // `parameters`: what later requests need of the opening, as texts.
  static bool Create(const std::string& streamId, const std::string& kind,
                     const Json::Value& parameters);

  // Holds the ticket's lock until the object's end. Nothing when there is no such ticket.
  static std::optional<Ticket> Take(const std::string& streamId);

  // The ids of all tickets.
  static std::vector<std::string> All();

  const std::string& StreamId() const { return streamId_; }
  std::string Kind() const;
  std::string Parameter(const std::string& name) const;  // "" when there is none
  const Json::Value& Record() const;                     // the stream's metadata record
  int StartSeconds() const;                              // where the newest request started
  time_t LastUse() const;                                // when a request last used the stream

  // Tells the stream's monitor, if it has one, that somebody is still watching.
  void MarkUse() const;

  // The newest request that plays the stream. "" and -1 when none does.
  std::string Owner() const;
  pid_t OwnerPid() const;
  bool SetOwner(const std::string& owner, pid_t pid, int startSeconds);

  LibOrvoQMX::StreamDirectory Directory() const;
  std::string Folder() const;      // its path
  std::string RecordPath() const;  // the record in it
  // Is it there, with its record?
  bool HasDirectory() const;

  void Remove();

 private:
  Ticket(std::string streamId, std::unique_ptr<LibMirevo::Lock> lock, Json::Value content);

  std::string streamId_;
  std::unique_ptr<LibMirevo::Lock> lock_;
  Json::Value content_;
};

// What a player's addresses carry as "_sid" to open this stream; "" where no login is needed.
std::string StreamLink(const Ticket& ticket);

// Is the stream the caller's to use? It is its account's alone, and the owner's, as long as they
// may see its film. Otherwise there is an answer in `refusal`.
bool MayUse(const Caller& caller, const Ticket& stream, Answer& refusal);
// The same to close it, whoever may see the film by now.
bool MayClose(const Caller& caller, const Ticket& stream, Answer& refusal);

// Where the directories of one kind of streams lie.
std::string KindFolder(const std::string& kind);

}  // namespace webapi
