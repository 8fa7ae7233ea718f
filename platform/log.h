// The one way to write a log line.
#pragma once

#include <syslog.h>

#include "platform/export.h"

namespace orvo {

// Sends "source:line message" to the system log, where source is the base name of `file` without
// its ending. The message is formatted as by printf.
ORVO_API void Log(int priority, const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace orvo

// The source file that a line names. A file that continues the work of another file defines it
// first.
#ifndef ORVO_LOG_SOURCE
#define ORVO_LOG_SOURCE __FILE__
#endif

#define ORVO_LOG(...) orvo::Log(LOG_ERR, ORVO_LOG_SOURCE, __LINE__, __VA_ARGS__)
