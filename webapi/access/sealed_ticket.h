// Tickets that addresses carry, so that every box of a cluster can serve every stream.
//
// An address names the stream and, sealed (webapi/cluster), how it was opened. A box that does not
// know the stream checks the sealed ticket like one of its own, and makes the stream from it. It
// adds no right: the account, the link and the film are checked as for any other request.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// How long a stream can be played after it was last used on a box, in seconds.
inline constexpr time_t kTicketSeconds = 24 * 3600;

// Checksums by which a box sees that it would make the same stream.
struct Promise {
  uint64_t film = 0;  // of the film's state
  uint64_t plan = 0;  // of the stream's plan
};

// The state of a film: its size and its modification time. The rest differs between boxes.
uint64_t FilmState(const orvo::MediaFile& film);

// The sealed ticket of a stream. "" without a cluster, or if the stream was opened before it had
// the key.
std::string SealTicket(const Ticket& ticket, const Promise& promise);

// What a ticket from an address promises.
Promise PromiseOf(const Ticket& sealed);

// Has the stream been closed on this box since it was opened?
bool IsClosedHere(const Ticket& sealed);

// The link of a new stream; every box computes the same one.
std::string LinkInCluster(const std::string& streamId, const std::string& account,
                          const std::string& era);

// Checks the sealed ticket in the request's address and, if the stream is not known here, keeps its
// content in the request. Returns a refusal for one that is forged, too old or closed. Requests
// without one pass, and so do all requests without a cluster.
std::optional<Answer> RefuseSealedTicket(Request& request);

}  // namespace webapi
