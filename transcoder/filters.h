// Filter chains, as "-vf" takes them, with and without the hardware that they were written for.
#pragma once

#include <string>

namespace orvo::transcoder {

// The chain for pictures in main memory: filters that need a device give way to ones that do the
// same without it, or to nothing. Empty when nothing is left.
std::string SoftwareFilters(const std::string& chain);

// The chain for a VA-API encoder: the pictures are scaled to `size` ("1280x720", the name of a
// size, or empty for none) and put on the device at its end. A chain that uploads by itself gets
// the size alone.
std::string VaapiFilters(const std::string& chain, const std::string& size);

}  // namespace orvo::transcoder
