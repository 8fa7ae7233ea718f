// The appliance's offline conversion of films. A viewer's transcoder has priority over it.
#pragma once

namespace LibMirevo {

// Asks a running conversion to pause, and waits up to 30 seconds until it has.
void AskOfflineConversionToGiveWay();

}  // namespace LibMirevo
