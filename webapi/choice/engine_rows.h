// Profiles for video engines, and which of them this machine can keep.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "webapi/choice/profiles.h"

namespace webapi {

// The greatest height of a profile's pictures; 0 if it names none.
unsigned LinesOf(const std::string& profileValue);

// Leaves out the profiles of engines that have not encoded pictures of the profile's size
// (transcoder/engines.h) or that the administrator does not want. If only such profiles are left,
// all stay: software stands in for the engine.
std::vector<Profile> WithoutUnprovedEngines(std::vector<Profile> profiles);

// Does a stream with these arguments count as one on hardware? The library decides by the arguments
// alone; this is false as well where software stands in for the engine.
bool RunsOnHardware(const std::string& profileValue);

// The engines that have a device on this machine: "encoder", "device", "lines" of the tallest
// pictures that it has encoded (0 without a proof), "speed" in seconds of film a second (0 if it is
// not known) and "reason", a sentence about what it cannot do. An empty array if nothing is known.
Json::Value DescribeEngines();

}  // namespace webapi
