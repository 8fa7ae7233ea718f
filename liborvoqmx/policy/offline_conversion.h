// The appliance's offline conversion of films, which transcoders for viewers come before.
#pragma once

namespace LibMirevo {

// Asks a running conversion to give way, and waits up to 30 seconds until it has.
void AskOfflineConversionToGiveWay();

}  // namespace LibMirevo
