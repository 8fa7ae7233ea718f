// What leaves the shared libraries: everything is hidden unless it says so.
#pragma once

#define ORVO_API __attribute__((visibility("default")))
