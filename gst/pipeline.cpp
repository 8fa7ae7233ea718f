#include "gst/pipeline.h"

#include <gst/audio/audio.h>

#include <algorithm>
#include <vector>

#include "gst/down_mix.h"
#include "gst/picture_filters.h"
#include "platform/log.h"

namespace orvo::gst {
namespace {

// Decoders need some of the film before the start to get into step.
constexpr GstClockTime kLead = 500 * GST_MSECOND;

// Segments start at multiples of the first. A player of a single stream wants more key frames.
constexpr GstClockTime kSegmentKeys = 5 * GST_SECOND;
constexpr GstClockTime kStreamKeys = 2 * GST_SECOND;

// Deinterlaces only pictures that are marked so, one out of each pair of fields, and turns them as
// the film says.
constexpr char kPictureDescription[] =
    "queue max-size-buffers=4 max-size-bytes=0 max-size-time=0 ! videoconvert"
    " ! deinterlace mode=auto fields=top ! videoflip name=upright video-direction=auto"
    " ! videoscale add-borders=true ! videoconvert ! capsfilter name=shape";

// Fills gaps from the very start, so that the sound stays in step.
constexpr char kSoundDescription[] =
    " ! audioresample ! audio/x-raw,rate=48000,channels=2 ! audiorate"
    " ! audioconvert ! ";

// A frame of AAC. A decoder needs the frames before one, so these are made anew.
constexpr guint64 kFrameSamples = 1024;
constexpr guint64 kSampleRate = 48000;
constexpr guint64 kFramesBefore = 3;

constexpr char kPicturesEnded[] = "pictures-ended";
constexpr char kSoundEnded[] = "sound-ended";

constexpr char kNoBasics[] = "GStreamer's basic plugins are missing";
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

std::string SoundDescription(GstPad* pad) {
  const OwnedMini<GstCaps> caps(gst_pad_get_current_caps(pad));
  return "queue ! " + DownMixOf(caps.get()) + kSoundDescription;
}

std::string CopyDescription(const std::string& type) {
  const auto* const row = std::find_if(std::begin(kParsers), std::end(kParsers),
                                       [&](const Parser& parser) { return type == parser.type; });
  const std::string parser = row == std::end(kParsers) ? "identity" : row->name;
  return "queue ! " + parser;
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

// Whole frames from the start on, so that the frames of all pipelines lie on one grid.
GstClockTime SkippedSound(GstClockTime next) {
  const guint64 frame = gst_util_uint64_scale(next, kSampleRate, kFrameSamples * GST_SECOND);
  const guint64 first = frame - std::min(frame, kFramesBefore);
  return gst_util_uint64_scale(first, kFrameSamples * GST_SECOND, kSampleRate);
}

// How the packets of one track leave a pipeline.
struct Outlet {
  Multiplexer& multiplexer;
  int pipeline;
  Track track;
  GstClockTimeDiff offset;
};

}  // namespace

Pipeline::Pipeline(const Request& request, const Elements& elements, Multiplexer& multiplexer)
    : request_(request),
      elements_(elements),
      multiplexer_(multiplexer),
      number_(multiplexer.Admit()),
      skippedPictures_(multiplexer.NextTime(Track::kPictures)),
      skippedSound_(SkippedSound(multiplexer.NextTime(Track::kSound))) {}

void Pipeline::Abandon(std::unique_ptr<Pipeline> pipeline) {
  gst_element_call_async(
      pipeline->Element(),
      [](GstElement* element, gpointer) { gst_element_set_state(element, GST_STATE_NULL); },
      nullptr, nullptr);
  // Its threads may be at work for as long as they like.
  (void)pipeline.release();
}

std::string Pipeline::Start() {
  pipeline_.reset(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
  GstElement* const decoder = gst_element_factory_make("decodebin3", "decoder");
  GstElement* const film = gst_element_factory_make("filesrc", "film");
  for (GstElement* const element : {decoder, film}) {
    if (element == nullptr) {
      return kNoBasics;
    }
    gst_bin_add(GST_BIN(pipeline_.get()), element);
  }
  if (request_.copiesSound) {
    const OwnedMini<GstCaps> caps(gst_caps_from_string(kCopiedSound));
    g_object_set(decoder, "caps", caps.get(), nullptr);
  }
  g_object_set(film, "location", request_.film.c_str(), nullptr);
  gst_element_link(film, decoder);
  g_signal_connect(decoder, "select-stream", G_CALLBACK(OnStream), this);
  g_signal_connect(decoder, "pad-added", G_CALLBACK(OnPad), this);
  const OwnedObject<GstBus> bus(gst_element_get_bus(pipeline_.get()));
  gst_bus_set_sync_handler(bus.get(), OnMessage, this, nullptr);
  // Why it fails, if it does, comes as a message.
  gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
  return "";
}

// At once, in the thread that failed: an encoder may go on behind the picture that it has lost.
GstBusSyncReply Pipeline::OnMessage(GstBus* /*bus*/, GstMessage* message, gpointer self) {
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
    const auto* const pipeline = static_cast<const Pipeline*>(self);
    pipeline->multiplexer_.Refuse(pipeline->number_);
  }
  return GST_BUS_PASS;
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

GstFlowReturn Pipeline::OnSample(GstAppSink* sink, gpointer outlet) {
  const auto& way = *static_cast<const Outlet*>(outlet);
  const OwnedMini<GstSample> sample(gst_app_sink_pull_sample(sink));
  return sample ? way.multiplexer.Take(way.pipeline, way.track, sample.get(), way.offset)
                : GST_FLOW_EOS;
}

// Told by a message, because a pipeline that has failed ends its tracks, too: the failure is told
// before that.
void Pipeline::OnEnd(GstAppSink* sink, gpointer outlet) {
  const bool isPictures = static_cast<const Outlet*>(outlet)->track == Track::kPictures;
  GstStructure* const text = gst_structure_new_empty(isPictures ? kPicturesEnded : kSoundEnded);
  gst_element_post_message(GST_ELEMENT(sink), gst_message_new_application(GST_OBJECT(sink), text));
}

std::optional<Track> Pipeline::EndedTrack(const char* message) {
  if (g_strcmp0(message, kPicturesEnded) == 0) {
    return Track::kPictures;
  }
  return g_strcmp0(message, kSoundEnded) == 0 ? std::optional(Track::kSound) : std::nullopt;
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
  pictures_->Open(origin + StartOf(request_) + skippedPictures_);
  if (sound_) {
    sound_->Open(origin + StartOf(request_) + skippedSound_);
  }
  multiplexer_.Start();
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

// What is held back is the film's beginning. A decoder that has begun with it is not sent there
// again: Opus decoders keep what they have heard, and begin far too loud.
bool Pipeline::Seek(GstClockTime origin) {
  const GstClockTime start =
      StartOf(request_) + (sound_ ? std::min(skippedPictures_, skippedSound_) : skippedPictures_);
  if (start <= kLead) {
    return true;
  }
  const GstClockTime place = origin + start - kLead;
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
  return Connect(Track::kPictures, *pictures_, branch.get());
}

void Pipeline::FilterPictures(GstElement* branch) {
  const OwnedObject<GstElement> upright = Named(branch, "upright");
  const OwnedObject<GstElement> shape = Named(branch, "shape");
  const OwnedObject<GstPad> pictures(gst_element_get_static_pad(upright.get(), "src"));
  FitPictures(pictures.get(), shape.get(), {request_.width, request_.height});
  const OwnedObject<GstPad> input(gst_element_get_static_pad(encoder_.get(), "sink"));
  ForceKeyFrames(input.get(), StartOf(request_) + skippedPictures_,
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
      MakeBranch(encodes ? SoundDescription(sound_->Pad()) + encoder.name + " name=sound ! aacparse"
                         : CopyDescription(type));
  if (!branch) {
    return kNoBranch;
  }
  if (encodes) {
    SetProperties(Named(branch.get(), "sound").get(), encoder.properties);
  }
  return Connect(Track::kSound, *sound_, branch.get());
}

std::string Pipeline::Connect(Track track, const FilmEntry& entry, GstElement* branch) {
  const OwnedObject<GstElement> outlet = MakeOutlet(track);
  if (!outlet) {
    return kNoBasics;
  }
  gst_bin_add_many(GST_BIN(pipeline_.get()), branch, outlet.get(), nullptr);
  const OwnedObject<GstPad> input(gst_element_get_static_pad(branch, "sink"));
  const OwnedObject<GstPad> output(gst_element_get_static_pad(branch, "src"));
  if (gst_element_link(branch, outlet.get()) == FALSE) {
    return "the multiplexer does not take " + TypeOf(entry.Pad());
  }
  DropPriming(output.get());
  gst_element_sync_state_with_parent(outlet.get());
  gst_element_sync_state_with_parent(branch);
  return gst_pad_link(entry.Pad(), input.get()) == GST_PAD_LINK_OK
             ? ""
             : "the encoders do not take " + TypeOf(entry.Pad());
}

// Where a branch ends: what arrives goes to the multiplexer.
OwnedObject<GstElement> Pipeline::MakeOutlet(Track track) {
  const OwnedMini<GstCaps> formats = multiplexer_.Add(track);
  GstElement* const sink = gst_element_factory_make("appsink", nullptr);
  if (!formats || sink == nullptr) {
    return nullptr;
  }
  g_object_set(sink, "sync", FALSE, "async", FALSE, "enable-last-sample", FALSE, "caps",
               formats.get(), nullptr);
  GstAppSinkCallbacks callbacks{};
  callbacks.eos = OnEnd;
  callbacks.new_sample = OnSample;
  const GstClockTime skipped = track == Track::kPictures ? skippedPictures_ : skippedSound_;
  gst_app_sink_set_callbacks(
      GST_APP_SINK(sink), &callbacks,
      new Outlet{multiplexer_, number_, track, static_cast<GstClockTimeDiff>(skipped)},
      [](gpointer outlet) { delete static_cast<Outlet*>(outlet); });
  return OwnedObject<GstElement>(GST_ELEMENT(gst_object_ref_sink(sink)));
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
