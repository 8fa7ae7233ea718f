// orvovideoconversiond: converts the queued films in the background (docs/conversions.md).
#include <sys/stat.h>
#include <syslog.h>

#include <cstdio>

#include "convert/service.h"

int main(int argc, char** /*argv*/) {
  if (argc > 1) {
    fprintf(stderr, "usage: orvovideoconversiond\n");
    return 64;
  }
  openlog("orvovideoconversiond", LOG_PID, LOG_USER);
  umask(S_IRWXG | S_IRWXO);
  return convert::Serve();
}
