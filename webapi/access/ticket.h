// The data about an open stream that outlives the stream's directory.
//
// The directory of a progressive stream is removed when the request that plays it ends. The
// stream's address must still work afterwards: after a seek, after a pause that broke the
// connection, in a second player. The ticket "/tmp/Mirevo/tickets/<stream id>" holds the record, so
// that the directory can be made again without a new probe. It also tells which request owns the
// stream now.
//
// A ticket is written under another name and renamed, so readers need no lock. A process that
// changes a ticket holds it.
#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "platform/media_file.h"
#include "state/stream_directory.h"
#include "util/file_lock.h"
#include "webapi/http/answer.h"
#include "webapi/http/caller.h"
#include "webapi/http/request.h"

namespace webapi {

// 32 hexadecimal digits, "_", 8 letters or digits.
bool IsStreamId(const std::string& text);

// The member of a ticket's content that only one from an address has: what the address promises of
// the stream.
inline constexpr char kOpeningMember[] = "opening";

// The answer to a request for a stream without a ticket.
inline constexpr char kStreamClosed[] = "This stream has been closed. Open the film again.";

// A copy of a ticket at the time of its reading.
class Ticket {
 public:
  // Reads a ticket. Returns nothing if there is none. A ticket that cannot be read, or that is in a
  // folder of another user, is logged and left, and counts as none.
  static std::optional<Ticket> Read(const std::string& streamId);

  // The ticket of the request's stream. Uses the copy that the link was checked against, if there
  // is one, and reads the ticket otherwise. Where there is none, uses the one that the address
  // carries (sealed_ticket.h).
  static std::optional<Ticket> Of(const Request& request);

  // The ticket of a stream whose directory and record exist, before it is written. `parameters` are
  // the texts of the opening that later requests need. Returns nothing if the record cannot be
  // read.
  static std::optional<Ticket> Draft(const std::string& streamId, const std::string& kind,
                                     const Json::Value& parameters);

  // The ids of all tickets.
  static std::vector<std::string> All();

  // When the ticket of this stream was last written; 0 if there is none.
  static time_t ChangedAt(const std::string& streamId);

  // Is there a ticket for this stream?
  static bool Exists(const std::string& streamId);

  // Remembers that a stream has been closed, because a sealed ticket would make it again.
  static void MarkClosed(const std::string& streamId);
  // When that was; 0 if it was not closed here.
  static time_t ClosedAt(const std::string& streamId);
  // Forgets the streams that were closed before this time, and the oldest of more than `most`.
  static void ForgetClosed(time_t before, size_t most);

  // The private folder of all tickets, and a lock on a file of that name in it. Not held if the
  // folder cannot be made or another process holds it for too long.
  static std::string FolderPath();
  static orvo::FileLock LockFolder(const std::string& name);

  // Does this come from an address, so that the stream is not made here yet? Its record has the
  // path and the profile only.
  bool IsSealed() const;

  const std::string& StreamId() const { return streamId_; }
  const Json::Value& Content() const { return content_; }
  std::string Kind() const;
  std::string Parameter(const std::string& name) const;  // "" if there is none
  int StartSeconds() const;                              // where the newest request started
  time_t LastUse() const;                                // when a request last used the stream
  // Milliseconds that the steps up to the stream's first bytes took, by their names.
  Json::Value Times() const;

  // The stream's metadata record and values from it. A missing value is "" or 0.
  const Json::Value& Record() const;
  std::string Path() const;
  unsigned Duration() const;  // seconds
  std::string ProfileKey() const;
  std::string ProfileValue() const;

  // Tells the stream's monitor, if there is one, that a viewer is still watching.
  void MarkUse() const;

  // The newest request that plays the stream; "" and -1 if there is none.
  std::string Owner() const;
  pid_t OwnerPid() const;

  LibOrvoQMX::StreamDirectory Directory() const;
  std::string Folder() const;      // its path
  std::string RecordPath() const;  // the record in it
  std::string FilePath() const;    // the ticket itself
  std::string PassPath() const;    // its pass (pass.h), which is removed with it
  // Does the directory exist, with its record?
  bool HasDirectory() const;

 protected:
  Ticket(std::string streamId, Json::Value content);

  std::string streamId_;
  Json::Value content_;
};

// A ticket that only this process can change while the object exists.
class HeldTicket : public Ticket {
 public:
  // Makes the ticket of a newly opened stream from the record in its directory. Replaces an older
  // one. Returns nothing if the ticket cannot be written.
  static std::optional<HeldTicket> Create(const std::string& streamId, const std::string& kind,
                                          const Json::Value& parameters);

  // Waits until no other process holds the ticket, for a limited time. Returns nothing if it no
  // longer exists then or is still held, and sets `refusal` to the answer.
  static std::optional<HeldTicket> Take(const std::string& streamId, Answer& refusal);
  static std::optional<HeldTicket> Take(const std::string& streamId);

  // Sets a parameter. Returns false if the ticket cannot be written.
  bool SetParameter(const std::string& name, const std::string& value);

  // Returns false if the ticket cannot be written.
  bool SetOwner(const std::string& owner, pid_t pid, int startSeconds);

  // Adds steps to Times(), or replaces them. Returns false if the ticket cannot be written.
  bool AddTimes(const Json::Value& steps);

  void Remove() const;

 private:
  HeldTicket(std::string streamId, Json::Value content, orvo::FileLock lock);

  bool Save() const;

  orvo::FileLock lock_;
};

// The film of a stream, opened for this request. Nothing, with the answer in `refusal`, if the
// client may not see it or if its path leads to another file than when the stream was opened.
std::optional<orvo::MediaFile> OpenFilmOf(const Ticket& ticket, Answer& refusal);

// The parameter of a ticket that tells which file the film is (orvo::MediaFile::Identity).
inline constexpr char kFilmParameter[] = "film";

// The value of "_sid" in a player's addresses that opens this stream; "" if no login is needed.
std::string StreamLink(const Ticket& ticket);

// The parameter of a ticket, and of its addresses, from which another box makes the stream
// (sealed_ticket.h). A ticket without a cluster has none.
inline constexpr char kSealedParameter[] = "ticket";

// The last parameters of a player's addresses, each after an "&": the link and the sealed ticket,
// as far as the stream has them.
std::string AddressEnd(const Ticket& ticket);

// May the caller use the stream? Its account and the owner may, as long as they may see its film.
// If not, sets `refusal` to the answer.
bool MayUse(const Caller& caller, const Ticket& stream, Answer& refusal);
// May the caller close the stream? The same rule, but without the check of the film.
bool MayClose(const Caller& caller, const Ticket& stream, Answer& refusal);

}  // namespace webapi
