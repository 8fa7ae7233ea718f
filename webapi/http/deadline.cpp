#include "webapi/http/deadline.h"

#include <unistd.h>

namespace webapi {

void SetDeadline(unsigned seconds) {
  alarm(seconds);
}

void RemoveDeadline() {
  alarm(0);
}

}  // namespace webapi
