// What a stream's transcoder is doing, as the system and FFmpeg tell it.
#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <vector>

#include "webapi/access/ticket.h"

namespace webapi {

// The pid of the stream's transcoder; -1 if none runs. In a progressive stream it is the recorded
// monitor; in other kinds it is the monitor's child.
pid_t TranscoderOf(const Ticket& ticket);

// Those of all renditions that run; in kinds with one rendition, TranscoderOf.
std::vector<pid_t> TranscodersOf(const Ticket& ticket);

// The one that encodes pictures or, without one, any other; -1 if none runs.
pid_t MainTranscoderOf(const Ticket& ticket);

// How far a transcoder has come, in seconds from its start; 0 if that is not known.
double SecondsMade(pid_t transcoder);

// "pid", "cpu_seconds" and "cpu_percent" (over the process's life, like `ps`), and, if FFmpeg has
// reported them, "speed" (1 is the film's own speed) and "position".
Json::Value DescribeWork(pid_t transcoder);

// Remembers what the stream's running transcoder has really cost, for later choices of a quality.
void LearnFrom(const Ticket& ticket);

}  // namespace webapi
