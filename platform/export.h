// Marks the symbols that the shared libraries export; all others are hidden.
#pragma once

#define ORVO_API __attribute__((visibility("default")))
