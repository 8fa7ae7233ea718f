// The appliance's offline conversion of films. A viewer's transcoder has priority over it.
#pragma once

#include "platform/export.h"

namespace LibMirevo {

// Asks a running conversion to pause, and waits up to 30 seconds until it has.
ORVO_API void AskOfflineConversionToGiveWay();

}  // namespace LibMirevo
