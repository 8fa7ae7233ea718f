// A box that takes no new streams, so that its films run out before an upgrade.
#pragma once

namespace webapi {

bool IsDraining();

// Lets the films of this box run out, or takes it back. Holds over restarts of the service, until
// the machine starts again. Returns false, with errno set, if it cannot be written.
bool SetDraining(bool isDraining);

}  // namespace webapi
