// Which of the machine's encoders and decoders convert a film.
#pragma once

#include <gst/gst.h>

#include <set>
#include <string>

#include "gst/arguments.h"

namespace orvo::gst {

struct EncoderChoice {
  std::string name;        // empty when the machine has none
  std::string properties;  // "NAME=VALUE", with blanks between
};

// Sets those of the properties that this version of the element has.
void SetProperties(GstElement* element, const std::string& properties);

// The best elements that the machine has, less those that have failed.
class Elements {
 public:
  // From here on the machine's decoding hardware comes before its software.
  Elements();

  EncoderChoice PictureEncoder(const Request& request) const;
  EncoderChoice SoundEncoder(const Request& request) const;

  // Takes an encoder or decoder out of the choice. False when `factory` is neither, or was taken
  // out before.
  bool Exclude(GstElementFactory* factory);

 private:
  bool Has(const char* name, Encoders wanted) const;

  std::set<std::string> excluded_;
};

// Does it change one codec's data into pictures or sound, or the reverse?
bool IsCodec(GstElementFactory* factory);

// Does it run on video hardware?
bool IsHardware(GstElementFactory* factory);

}  // namespace orvo::gst
