// Sends a segment while it is being written.
#pragma once

#include <functional>
#include <string>

#include "webapi/http/send_file.h"

namespace webapi {

// Sends the content of the file `unfinished` as it grows, in whole pairs of "moof" and "mdat",
// until it has been renamed to `finished`. Gives up when `isAlive`, which is called from time to
// time, returns false and the file is still not finished; the answer then has no end. Calls
// `begin`, which sends the headers, before the first pair. Returns false if it has sent nothing,
// not even the headers.
bool SendGrowing(const std::string& unfinished, const std::string& finished,
                 const std::function<bool()>& isAlive, const std::function<OpenAnswer()>& begin);

}  // namespace webapi
