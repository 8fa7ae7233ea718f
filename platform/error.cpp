#include "platform/plat.h"

namespace {
thread_local int lastError = 0;
}

int PlatErrGet() {
  return lastError;
}

void PlatErrSetEx(int code, const char* /*file*/, int /*line*/) {
  lastError = code;
}
