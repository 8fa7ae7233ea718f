#include "gst/pipeline.h"

#include <gst/audio/audio.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "gst/picture_filters.h"
#include "platform/log.h"

namespace orvo::gst {
namespace {

// Decoders need some of the film before the start to get into step.
constexpr GstClockTime kLead = 500 * GST_MSECOND;

// Where the clock of the MPEG-TS multiplexer starts, and where it turns to 0. It takes no times
// before its start, but later ones beyond the turn.
constexpr GstClockTime kTransportStart = 3600 * GST_SECOND;
constexpr GstClockTime kTransportTurn =
    ((G_GUINT64_CONSTANT(1) << 33) * GST_SECOND + 89999) / 90000;

// Segments start at multiples of the first. A player of a single stream wants more key frames.
constexpr GstClockTime kSegmentKeys = 5 * GST_SECOND;
constexpr GstClockTime kStreamKeys = 2 * GST_SECOND;

constexpr char kSinkDescription[] =
    " name=multiplexer ! appsink name=output sync=false async=false enable-last-sample=false"
    " buffer-list=false max-buffers=64";
constexpr char kDecoderDescription[] = "decodebin3 name=decoder ";

// Deinterlaces only pictures that are marked so, one out of each pair of fields, and turns them as
// the film says.
constexpr char kPictureDescription[] =
    "queue max-size-buffers=4 max-size-bytes=0 max-size-time=0 ! videoconvert"
    " ! deinterlace mode=auto fields=top ! videoflip name=upright video-direction=auto"
    " ! videoscale add-borders=true ! videoconvert ! capsfilter name=shape";

// Fills gaps from the very start, so that the sound stays in step.
constexpr char kSoundDescription[] =
    "queue ! audioconvert ! audioresample ! audio/x-raw,rate=48000,channels=2 ! audiorate"
    " ! audioconvert ! ";

constexpr char kNoBranch[] = "GStreamer's plugins are not complete";

constexpr char kCopiedSound[] =
    "video/x-raw(ANY); audio/x-raw(ANY); audio/x-ac3; audio/x-eac3; audio/mpeg";

struct Parser {
  const char* type;
  const char* name;
};
constexpr Parser kParsers[] = {
    {"audio/x-ac3", "ac3parse"},
    {"audio/x-eac3", "ac3parse"},
};

OwnedObject<GstElement> Named(GstElement* bin, const char* name) {
  return OwnedObject<GstElement>(gst_bin_get_by_name(GST_BIN(bin), name));
}

// Nothing, with the reason in the log, when an element is missing.
OwnedObject<GstElement> MakeBranch(const std::string& description) {
  GError* error = nullptr;
  GstElement* const branch = gst_parse_bin_from_description(description.c_str(), TRUE, &error);
  const OwnedError reason(error);
  OwnedObject<GstElement> owned(branch == nullptr ? nullptr
                                                  : GST_ELEMENT(gst_object_ref_sink(branch)));
  if (reason) {
    ORVO_LOG("%s", reason->message);
    owned.reset();
  }
  return owned;
}

std::string MultiplexerDescription(Container container) {
  return container == Container::kMp4 ? "mp4mux fragment-duration=500 streamable=true"
                                      : "mpegtsmux";
}

std::string RateDescription(double rate) {
  if (rate <= 0) {
    return "";
  }
  gint numerator = 0;
  gint denominator = 1;
  gst_util_double_to_fraction(rate, &numerator, &denominator);
  return " ! videorate ! video/x-raw,framerate=" + std::to_string(numerator) + "/" +
         std::to_string(denominator);
}

std::string TypeOf(GstPad* pad) {
  const OwnedMini<GstCaps> caps(gst_pad_get_current_caps(pad));
  return caps == nullptr ? "" : gst_structure_get_name(gst_caps_get_structure(caps.get(), 0));
}

std::string CopyDescription(const std::string& type) {
  const auto* const row = std::find_if(std::begin(kParsers), std::end(kParsers),
                                       [&](const Parser& parser) { return type == parser.type; });
  const std::string parser = row == std::end(kParsers) ? "identity" : row->name;
  return "queue ! " + parser;
}

GstClockTime ToTime(double seconds) {
  return static_cast<GstClockTime>(std::llround(seconds * GST_SECOND));
}

int CountOf(GstStreamCollection* all, GstStreamType type) {
  int count = 0;
  for (guint i = 0; i < gst_stream_collection_get_size(all); ++i) {
    GstStream* const stream = gst_stream_collection_get_stream(all, i);
    count += (gst_stream_get_stream_type(stream) & type) != 0 ? 1 : 0;
  }
  return count;
}

int PlaceOf(GstStreamCollection* all, GstStream* wanted) {
  const GstStreamType type = gst_stream_get_stream_type(wanted);
  int place = 0;
  for (guint i = 0; i < gst_stream_collection_get_size(all); ++i) {
    GstStream* const stream = gst_stream_collection_get_stream(all, i);
    if (g_strcmp0(gst_stream_get_stream_id(stream), gst_stream_get_stream_id(wanted)) == 0) {
      return place;
    }
    place += (gst_stream_get_stream_type(stream) & type) != 0 ? 1 : 0;
  }
  return place;
}

}  // namespace

Pipeline::Pipeline(const Request& request, const Elements& elements)
    : request_(request), elements_(elements), clock_(request.start) {}

Pipeline::~Pipeline() {
  if (pipeline_) {
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  }
}

std::string Pipeline::Start() {
  GError* error = nullptr;
  const std::string text =
      kDecoderDescription + MultiplexerDescription(request_.container) + kSinkDescription;
  pipeline_.reset(gst_parse_launch(text.c_str(), &error));
  const OwnedError reason(error);
  if (reason) {
    return std::string("cannot make the pipeline: ") + reason->message;
  }
  multiplexer_ = Named(pipeline_.get(), "multiplexer");
  sink_ = Named(pipeline_.get(), "output");
  const OwnedObject<GstElement> decoder = Named(pipeline_.get(), "decoder");
  if (request_.copiesSound) {
    const OwnedMini<GstCaps> caps(gst_caps_from_string(kCopiedSound));
    g_object_set(decoder.get(), "caps", caps.get(), nullptr);
  }
  GstElement* const film = gst_element_factory_make("filesrc", "film");
  if (film == nullptr) {
    return "GStreamer's basic plugins are missing";
  }
  g_object_set(film, "location", request_.film.c_str(), nullptr);
  gst_bin_add(GST_BIN(pipeline_.get()), film);
  gst_element_link(film, decoder.get());
  g_signal_connect(decoder.get(), "select-stream", G_CALLBACK(OnStream), this);
  g_signal_connect(decoder.get(), "pad-added", G_CALLBACK(OnPad), this);
  GstAppSinkCallbacks callbacks{};
  callbacks.new_sample = OnSample;
  gst_app_sink_set_callbacks(GST_APP_SINK(sink_.get()), &callbacks, this, nullptr);
  if (request_.keepsFilmClock && request_.container == Container::kMp4) {
    const OwnedObject<GstPad> pieces(gst_element_get_static_pad(sink_.get(), "sink"));
    gst_pad_add_probe(pieces.get(), GST_PAD_PROBE_TYPE_BUFFER, OnPiece, this, nullptr);
  }
  // Why it fails, if it does, comes as a message.
  gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
  return "";
}

gint Pipeline::OnStream(GstElement* /*decoder*/, GstStreamCollection* all, GstStream* stream,
                        gpointer self) {
  auto* const pipeline = static_cast<Pipeline*>(self);
  pipeline->CountTracks(all);
  const GstStreamType type = gst_stream_get_stream_type(stream);
  const bool isPicture = (type & GST_STREAM_TYPE_VIDEO) != 0 && PlaceOf(all, stream) == 0;
  const bool isSound =
      (type & GST_STREAM_TYPE_AUDIO) != 0 && PlaceOf(all, stream) == pipeline->request_.soundTrack;
  return isPicture || isSound ? 1 : 0;
}

void Pipeline::CountTracks(GstStreamCollection* all) {
  pictureTracks_ = CountOf(all, GST_STREAM_TYPE_VIDEO);
  soundTracks_ = CountOf(all, GST_STREAM_TYPE_AUDIO);
}

void Pipeline::OnPad(GstElement* /*decoder*/, GstPad* pad, gpointer self) {
  auto* const pipeline = static_cast<Pipeline*>(self);
  const bool isPicture = g_str_has_prefix(GST_OBJECT_NAME(pad), "video");
  const bool isSound = g_str_has_prefix(GST_OBJECT_NAME(pad), "audio");
  const std::lock_guard<std::mutex> lock(pipeline->mutex_);
  auto& entry = isPicture ? pipeline->pictures_ : pipeline->sound_;
  if ((isPicture || isSound) && !entry) {
    entry = std::make_unique<FilmEntry>(pad, pipeline->pipeline_.get());
  }
}

GstFlowReturn Pipeline::OnSample(GstAppSink* /*sink*/, gpointer self) {
  auto* const pipeline = static_cast<Pipeline*>(self);
  if (!pipeline->isOutputAnnounced_.exchange(true)) {
    GstElement* const element = pipeline->pipeline_.get();
    gst_element_post_message(element, gst_message_new_application(
                                          GST_OBJECT(element), gst_structure_new_empty(kOutput)));
  }
  return GST_FLOW_OK;
}

GstPadProbeReturn Pipeline::OnPiece(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer self) {
  FragmentClock& clock = static_cast<Pipeline*>(self)->clock_;
  GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
  if (!clock.Skip(gst_buffer_get_size(buffer))) {
    buffer = gst_buffer_make_writable(buffer);
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    GstMapInfo map = GST_MAP_INFO_INIT;
    if (gst_buffer_map(buffer, &map, GST_MAP_READWRITE) == TRUE) {
      clock.Set({map.data, map.size});
      gst_buffer_unmap(buffer, &map);
    }
  }
  return GST_PAD_PROBE_OK;
}

OwnedMini<GstSample> Pipeline::Pull() {
  isOutputAnnounced_ = false;
  return OwnedMini<GstSample>(gst_app_sink_try_pull_sample(GST_APP_SINK(sink_.get()), 0));
}

bool Pipeline::IsEverythingHeld() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const bool hasPictures = pictures_ && pictures_->IsHeld();
  const bool wantsSound = soundTracks_ > 0 && !lacksSoundDecoder_;
  return hasPictures && (!wantsSound || (sound_ && sound_->IsHeld()));
}

std::string Pipeline::EnterWhenHeld() {
  if (pictureTracks_ == 0) {
    return "the film has no pictures";
  }
  if (soundTracks_ > 0 && request_.soundTrack >= soundTracks_) {
    return "the film has no sound track " + std::to_string(request_.soundTrack);
  }
  if (isEntered_ || !IsEverythingHeld()) {
    return "";
  }
  isEntered_ = true;
  return Enter();
}

std::string Pipeline::GoOnWithout(const std::string& caps) {
  if (caps.rfind("audio/", 0) != 0) {
    return "nothing here decodes " + caps;
  }
  lacksSoundDecoder_ = true;
  return EnterWhenHeld();
}

std::string Pipeline::Enter() {
  if (!pictures_->HasData()) {
    return "the film has no picture that can be decoded";
  }
  std::string error = ConnectPictures();
  if (error.empty() && sound_ && sound_->HasData()) {
    error = ConnectSound();
  }
  if (!error.empty()) {
    return error;
  }
  const GstClockTime none = GST_CLOCK_TIME_NONE;
  const GstClockTime first =
      std::min(pictures_->First().value_or(none), sound_ ? sound_->First().value_or(none) : none);
  const GstClockTime origin = first == none ? 0 : first;
  for (FilmEntry* const entry : {pictures_.get(), sound_.get()}) {
    if (entry != nullptr) {
      entry->Open(origin + ToTime(request_.start));
    }
  }
  if (!Seek(origin)) {
    return "cannot enter the film at " + std::to_string(request_.start) + " seconds";
  }
  for (FilmEntry* const entry : {pictures_.get(), sound_.get()}) {
    if (entry != nullptr) {
      entry->Release();
    }
  }
  return "";
}

bool Pipeline::Seek(GstClockTime origin) {
  const GstClockTime start = ToTime(request_.start);
  const GstClockTime place = origin + start - std::min(start, kLead);
  const auto flags = static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
  GstEvent* const seek = gst_event_new_seek(1.0, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET,
                                            static_cast<gint64>(place), GST_SEEK_TYPE_NONE, -1);
  return gst_pad_send_event(pictures_->Pad(), seek) == TRUE;
}

std::string Pipeline::ConnectPictures() {
  const EncoderChoice encoder = elements_.PictureEncoder(request_);
  if (encoder.name.empty()) {
    return "nothing here encodes H.264";
  }
  const OwnedObject<GstElement> branch =
      MakeBranch(kPictureDescription + RateDescription(request_.frameRate) + " ! videoconvert ! " +
                 encoder.name + " name=encoder ! h264parse config-interval=-1");
  if (!branch) {
    return kNoBranch;
  }
  encoder_ = Named(branch.get(), "encoder");
  SetProperties(encoder_.get(), encoder.properties);
  FilterPictures(branch.get());
  return Connect(*pictures_, branch.get());
}

void Pipeline::FilterPictures(GstElement* branch) {
  const OwnedObject<GstElement> upright = Named(branch, "upright");
  const OwnedObject<GstElement> shape = Named(branch, "shape");
  const OwnedObject<GstPad> pictures(gst_element_get_static_pad(upright.get(), "src"));
  FitPictures(pictures.get(), shape.get(), {request_.width, request_.height});
  const OwnedObject<GstPad> input(gst_element_get_static_pad(encoder_.get(), "sink"));
  ForceKeyFrames(input.get(), ToTime(request_.start),
                 request_.keepsFilmClock ? kStreamKeys : kSegmentKeys);
}

std::string Pipeline::ConnectSound() {
  const std::string type = TypeOf(sound_->Pad());
  const bool encodes = type == "audio/x-raw";
  const EncoderChoice encoder = elements_.SoundEncoder(request_);
  if (encodes && encoder.name.empty()) {
    return "nothing here encodes AAC";
  }
  const OwnedObject<GstElement> branch =
      MakeBranch(encodes ? kSoundDescription + encoder.name + " name=sound ! aacparse"
                         : CopyDescription(type));
  if (!branch) {
    return kNoBranch;
  }
  if (encodes) {
    SetProperties(Named(branch.get(), "sound").get(), encoder.properties);
  }
  return Connect(*sound_, branch.get());
}

std::string Pipeline::Connect(const FilmEntry& entry, GstElement* branch) {
  gst_bin_add(GST_BIN(pipeline_.get()), branch);
  const OwnedObject<GstPad> input(gst_element_get_static_pad(branch, "sink"));
  const OwnedObject<GstPad> output(gst_element_get_static_pad(branch, "src"));
  if (gst_element_link(branch, multiplexer_.get()) == FALSE) {
    return "the multiplexer does not take " + TypeOf(entry.Pad());
  }
  DropPriming(output.get());
  SetClock(output.get());
  gst_element_sync_state_with_parent(branch);
  return gst_pad_link(entry.Pad(), input.get()) == GST_PAD_LINK_OK
             ? ""
             : "the encoders do not take " + TypeOf(entry.Pad());
}

// A segmenter behind this finds the first time in the stream by itself.
void Pipeline::SetClock(GstPad* output) {
  if (!request_.keepsFilmClock || request_.container != Container::kTransportStream) {
    return;
  }
  const OwnedObject<GstPad> input(gst_pad_get_peer(output));
  gst_pad_set_offset(
      input.get(), static_cast<gint64>(kTransportTurn - kTransportStart + ToTime(request_.start)));
}

bool Pipeline::End() {
  if (!isEntered_) {
    return false;
  }
  for (FilmEntry* const entry : {pictures_.get(), sound_.get()}) {
    if (entry != nullptr) {
      entry->End();
    }
  }
  return true;
}

GstElementFactory* Pipeline::PictureEncoder() const {
  return encoder_ ? gst_element_get_factory(encoder_.get()) : nullptr;
}

std::string Pipeline::Names() const {
  std::string names;
  GstIterator* const all = gst_bin_iterate_recurse(GST_BIN(pipeline_.get()));
  gst_iterator_foreach(
      all,
      [](const GValue* item, gpointer data) {
        GstElementFactory* const factory =
            gst_element_get_factory(GST_ELEMENT(g_value_get_object(item)));
        if (factory != nullptr && IsCodec(factory)) {
          auto& text = *static_cast<std::string*>(data);
          text += (text.empty() ? "" : ", ") + std::string(GST_OBJECT_NAME(factory));
        }
      },
      &names);
  gst_iterator_free(all);
  return names;
}

}  // namespace orvo::gst
