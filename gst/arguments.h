// The command line of the GStreamer wrapper.
#pragma once

#include <string>
#include <vector>

namespace orvo::gst {

enum class Container { kTransportStream, kMp4 };

enum class Encoders { kAny, kHardware, kSoftware };

struct Request {
  std::string film;  // a path
  double start = 0;  // seconds into the film
  int output = -1;   // a descriptor
  Container container = Container::kTransportStream;
  Encoders encoders = Encoders::kAny;  // those for the pictures
  bool copiesSound = false;
  bool keepsFilmClock = false;  // the output's times are the film's; without, they count from 0
  int soundTrack = 0;           // among the film's sound tracks
  long pictureBits = 2'000'000;
  long soundBits = 128'000;
  int width = 0;  // of the box that the picture has to fit into; 0 for the film's own size
  int height = 0;
  double frameRate = 0;  // pictures a second; 0 for the film's own
};

struct Reading {
  Request request;
  std::string error;  // what is wrong with the command line, or empty
};

// Of an option that is given twice, the last one counts.
Reading ReadArguments(const std::vector<std::string>& arguments);

}  // namespace orvo::gst
