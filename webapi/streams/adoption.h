// Makes a stream that another box has opened.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "metadata/video_metadata.h"
#include "platform/media_file.h"
#include "webapi/access/ticket.h"
#include "webapi/http/answer.h"
#include "webapi/streams/client_streams.h"

namespace webapi {

// How streams of one kind are made.
struct StreamSteps {
  // Makes the directory and the record. Returns the stream's id, or an error word for the client.
  std::function<std::string(const orvo::MediaFile&, const LibOrvoQMX::VideoMetaData&)> init;
  std::function<Answer(const Ticket&)> prepare;
  std::function<void()> close;
  // Room among the streams of the client, or nothing, with the answer in `refusal`.
  std::function<std::optional<ClientStreams>(Answer& refusal)> findRoom;
};

// Makes the stream that a ticket from an address describes, with its own ticket here. If the film
// or the plan differs from what the ticket promises, or the client has too many streams here,
// returns nothing, leaves nothing behind and sets `refusal` to the answer. Of several requests, one
// makes the stream.
std::optional<Ticket> AdoptStream(const Ticket& sealed, const StreamSteps& steps, Answer& refusal);

}  // namespace webapi
