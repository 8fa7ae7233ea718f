#include "webapi/streams/adoption.h"

#include "webapi/access/sealed_ticket.h"
#include "webapi/http/work.h"
#include "webapi/library/media_library.h"
#include "webapi/streams/plan_checksum.h"

namespace webapi {
namespace {

using LibOrvoQMX::VideoMetaData;

Answer FilmDiffers() {
  return Answer::Failure(kGone,
                         "The film has changed since this address was made. Open the film again.");
}

Answer PlanDiffers() {
  return Answer::Failure(kGone, "This server would cut the film differently. Open the film again.");
}

// The film, if it is the one that was opened. A film that is not here counts as changed.
std::optional<orvo::MediaFile> OpenPromised(const Ticket& sealed, Answer& refusal) {
  auto file = OpenFilm(sealed.Path(), refusal);
  if (refusal.IsFor(kNotFound) || (file && FilmState(*file) != PromiseOf(sealed).film)) {
    refusal = FilmDiffers();
    return std::nullopt;
  }
  return file;
}

Json::Value ParametersOf(const Ticket& sealed, const orvo::MediaFile& file) {
  Json::Value parameters = sealed.Content()["parameters"];
  parameters[kFilmParameter] = file.Identity();
  return parameters;
}

// The stream's own ticket, once its plan is the promised one. Other requests find it only then.
std::optional<HeldTicket> Settle(const Ticket& sealed, const Json::Value& parameters,
                                 const StreamSteps& steps, Answer& refusal) {
  const auto draft = Ticket::Draft(sealed.StreamId(), sealed.Kind(), parameters);
  refusal = draft ? steps.prepare(*draft) : Answer::Failure(kInternal);
  if (refusal.IsFailure()) {
    return std::nullopt;
  }
  if (PlanChecksum(*draft) != PromiseOf(sealed).plan) {
    refusal = PlanDiffers();
    return std::nullopt;
  }
  auto own = steps.findRoom(refusal);
  if (!own) {
    return std::nullopt;
  }
  refusal = Answer::Failure(kInternal);
  auto ticket = HeldTicket::Create(sealed.StreamId(), sealed.Kind(), parameters);
  if (ticket) {
    own->Add(sealed.StreamId());
  }
  return ticket;
}

std::optional<HeldTicket> Make(const Ticket& sealed, const StreamSteps& steps, Answer& refusal) {
  const auto file = OpenPromised(sealed, refusal);
  const auto place = file ? TakePlace(kFilmWork) : std::nullopt;
  if (!file) {
    return std::nullopt;
  }
  refusal = Answer::Failure(kBusy);
  VideoMetaData film;
  if (!place) {
    return std::nullopt;
  }
  refusal = FilmDiffers();
  if (!film.LoadFile(*file)) {
    return std::nullopt;
  }
  const std::string made = steps.init(*file, film);
  refusal = Answer::Failure(made.empty() ? kInternal : made);
  if (made != sealed.StreamId()) {
    return std::nullopt;
  }
  auto own = Settle(sealed, ParametersOf(sealed, *file), steps, refusal);
  if (!own) {
    steps.close();
  }
  return own;
}

// A request that closes the stream leaves its mark before it looks for a ticket. So it finds this
// one, or its mark is found here.
std::optional<Ticket> UnlessClosed(const Ticket& sealed, std::optional<HeldTicket> own,
                                   const StreamSteps& steps, Answer& refusal) {
  if (own && IsClosedHere(sealed)) {
    own->Remove();
    steps.close();
    refusal = Answer::Failure(kGone, kStreamClosed);
    return std::nullopt;
  }
  return own;
}

}  // namespace

std::optional<Ticket> AdoptStream(const Ticket& sealed, const StreamSteps& steps, Answer& refusal) {
  const auto alone = Ticket::LockFolder("adoption of " + sealed.StreamId());
  if (!alone.IsHeld()) {
    refusal = Answer::Failure(kBusy, "Another request of this stream has not ended.");
    return std::nullopt;
  }
  auto made = Ticket::Read(sealed.StreamId());
  return made ? made : UnlessClosed(sealed, Make(sealed, steps, refusal), steps, refusal);
}

}  // namespace webapi
