#include "gst/elements.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <sstream>

#include "gst/owned.h"

namespace orvo::gst {
namespace {

enum class Unit { kBits = 1, kKilobits = 1000 };

struct Encoder {
  const char* name;
  const char* rate;        // the property that takes the bit rate; empty when a control does
  Unit unit;               // of that property
  const char* properties;  // further ones
};

// In the order of preference. Pictures are not reordered, so that sound and pictures start
// together; key frames come when they are asked for.
constexpr auto kPictureEncoders = std::to_array<Encoder>({
    {"vah264enc", "bitrate", Unit::kKilobits, "rate-control=cbr b-frames=0 key-int-max=300"},
    {"vah264lpenc", "bitrate", Unit::kKilobits, "rate-control=cbr b-frames=0 key-int-max=300"},
    {"vaapih264enc", "bitrate", Unit::kKilobits,
     "rate-control=cbr max-bframes=0 keyframe-period=300"},
    {"v4l2h264enc", "", Unit::kBits, ""},
    {"nvh264enc", "bitrate", Unit::kKilobits, "bframes=0 gop-size=300 zerolatency=true"},
    {"nvcudah264enc", "bitrate", Unit::kKilobits, "b-frames=0 gop-size=300"},
    {"x264enc", "bitrate", Unit::kKilobits,
     "speed-preset=superfast bframes=0 key-int-max=300 vbv-buf-capacity=1000"},
    {"openh264enc", "bitrate", Unit::kBits, "rate-control=bitrate gop-size=300"},
});

constexpr auto kSoundEncoders = std::to_array<Encoder>({
    {"fdkaacenc", "bitrate", Unit::kBits, ""},
    {"avenc_aac", "bitrate", Unit::kBits, ""},
    {"voaacenc", "bitrate", Unit::kBits, ""},
});

struct Hardware {
  const char* prefix;  // of the decoders' names
  guint rank;
};

constexpr auto kDecodingHardware = std::to_array<Hardware>({
    {"va", GST_RANK_PRIMARY + 30},
    {"v4l2", GST_RANK_PRIMARY + 20},
    {"nv", GST_RANK_PRIMARY + 10},
});

void Promote(GstElementFactory* factory) {
  const char* const name = GST_OBJECT_NAME(factory);
  for (const Hardware& row : kDecodingHardware) {
    if (IsHardware(factory) && g_str_has_prefix(name, row.prefix)) {
      gst_plugin_feature_set_rank(GST_PLUGIN_FEATURE(factory), row.rank);
    }
  }
}

void PromoteHardware() {
  GList* const decoders = gst_element_factory_list_get_elements(
      GST_ELEMENT_FACTORY_TYPE_DECODER | GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO, GST_RANK_NONE);
  for (const GList* row = decoders; row != nullptr; row = row->next) {
    Promote(GST_ELEMENT_FACTORY(row->data));
  }
  gst_plugin_feature_list_free(decoders);
}

std::string Rate(const Encoder& encoder, long bits) {
  return encoder.rate + std::string("=") + std::to_string(bits / static_cast<long>(encoder.unit)) +
         " ";
}

// Linux's own encoders take their settings as a structure of controls.
std::string Controls(long bits) {
  return "extra-controls=controls,video_bitrate=" + std::to_string(bits) +
         ",video_b_frames=0,repeat_sequence_header=1";
}

EncoderChoice Chosen(const Encoder& encoder, long bits) {
  const bool hasRate = *encoder.rate != '\0';
  return {encoder.name, hasRate ? Rate(encoder, bits) + encoder.properties : Controls(bits)};
}

}  // namespace

Elements::Elements() {
  PromoteHardware();
}

void SetProperties(GstElement* element, const std::string& properties) {
  std::istringstream pairs(properties);
  for (std::string pair; pairs >> pair;) {
    const size_t equals = pair.find('=');
    const std::string name = pair.substr(0, equals);
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(element), name.c_str()) != nullptr) {
      gst_util_set_object_arg(G_OBJECT(element), name.c_str(), pair.substr(equals + 1).c_str());
    }
  }
}

bool Elements::Has(const char* name, Encoders wanted) const {
  const OwnedObject<GstElementFactory> factory(gst_element_factory_find(name));
  if (factory == nullptr || excluded_.count(name) != 0) {
    return false;
  }
  return wanted == Encoders::kAny || IsHardware(factory.get()) == (wanted == Encoders::kHardware);
}

EncoderChoice Elements::PictureEncoder(const Request& request) const {
  const auto row =
      std::find_if(kPictureEncoders.begin(), kPictureEncoders.end(),
                   [&](const Encoder& encoder) { return Has(encoder.name, request.encoders); });
  return row == kPictureEncoders.end() ? EncoderChoice{} : Chosen(*row, request.pictureBits);
}

EncoderChoice Elements::SoundEncoder(const Request& request) const {
  const auto row =
      std::find_if(kSoundEncoders.begin(), kSoundEncoders.end(),
                   [&](const Encoder& encoder) { return Has(encoder.name, Encoders::kAny); });
  return row == kSoundEncoders.end() ? EncoderChoice{} : Chosen(*row, request.soundBits);
}

bool Elements::Exclude(GstElementFactory* factory) {
  if (!IsCodec(factory) || !excluded_.insert(GST_OBJECT_NAME(factory)).second) {
    return false;
  }
  gst_plugin_feature_set_rank(GST_PLUGIN_FEATURE(factory), GST_RANK_NONE);
  return true;
}

bool IsHardware(GstElementFactory* factory) {
  const char* const kind = gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS);
  return kind != nullptr && strstr(kind, "Hardware") != nullptr;
}

bool IsCodec(GstElementFactory* factory) {
  return gst_element_factory_list_is_type(
      factory, GST_ELEMENT_FACTORY_TYPE_DECODER | GST_ELEMENT_FACTORY_TYPE_ENCODER);
}

}  // namespace orvo::gst
