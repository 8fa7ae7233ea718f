#include "gst/multiplexer.h"

#include <cmath>

namespace orvo::gst {
namespace {

// Where the clock of the MPEG-TS multiplexer starts, and where it turns to 0. It takes no times
// before its start, but later ones beyond the turn.
constexpr GstClockTime kTransportStart = 3600 * GST_SECOND;
constexpr GstClockTime kTransportTurn =
    ((G_GUINT64_CONSTANT(1) << 33) * GST_SECOND + 89999) / 90000;

constexpr char kSinkDescription[] =
    " name=multiplexer ! appsink name=output sync=false async=false enable-last-sample=false"
    " buffer-list=false max-buffers=64";

// Packets of a track that wait for the container. More may wait while the other track has none:
// encoders of pictures hold back seconds of a film with few of them, a film's sound may end early,
// and the film has to be read on for either to come.
constexpr guint64 kMostPackets = 16;
constexpr guint64 kMostBytes = 32 << 20;

guint64 LevelOf(const OwnedObject<GstElement>& source) {
  return gst_app_src_get_current_level_buffers(GST_APP_SRC(source.get()));
}

OwnedObject<GstElement> Named(GstElement* bin, const char* name) {
  return OwnedObject<GstElement>(gst_bin_get_by_name(GST_BIN(bin), name));
}

std::string DescriptionOf(Container container) {
  return container == Container::kMp4 ? "mp4mux fragment-duration=500 streamable=true"
                                      : "mpegtsmux";
}

const char* PadOf(Container container, Track track) {
  if (container == Container::kTransportStream) {
    return "sink_%d";
  }
  return track == Track::kPictures ? "video_%u" : "audio_%u";
}

// What running times get in addition. A segmenter behind this finds the first time in the stream by
// itself, and the clock of MP4 is set in its fragments.
GstClockTime BaseOf(const Request& request) {
  const bool isSet = request.keepsFilmClock && request.container == Container::kTransportStream;
  return isSet ? kTransportTurn - kTransportStart + StartOf(request) : 0;
}

// The running time; nothing if there is none or it lies before 0.
GstClockTime Running(const GstSegment& segment, GstClockTime time, GstClockTimeDiff offset) {
  guint64 distance = 0;
  const int sign = GST_CLOCK_TIME_IS_VALID(time) ? gst_segment_to_running_time_full(
                                                       &segment, GST_FORMAT_TIME, time, &distance)
                                                 : 0;
  const GstClockTimeDiff running = sign * static_cast<GstClockTimeDiff>(distance) + offset;
  return sign == 0 || running < 0 ? GST_CLOCK_TIME_NONE : static_cast<GstClockTime>(running);
}

GstBuffer* WithRunningTimes(GstSample* sample, GstClockTimeDiff offset) {
  const GstSegment& segment = *gst_sample_get_segment(sample);
  GstBuffer* const packet = gst_buffer_copy(gst_sample_get_buffer(sample));
  GST_BUFFER_PTS(packet) = Running(segment, GST_BUFFER_PTS(packet), offset);
  GST_BUFFER_DTS(packet) = Running(segment, GST_BUFFER_DTS(packet), offset);
  return packet;
}

void Move(GstBuffer& packet, GstClockTime base) {
  for (GstClockTime* const time : {&GST_BUFFER_PTS(&packet), &GST_BUFFER_DTS(&packet)}) {
    *time += GST_CLOCK_TIME_IS_VALID(*time) ? base : 0;
  }
}

}  // namespace

GstClockTime StartOf(const Request& request) {
  return static_cast<GstClockTime>(std::llround(request.start * GST_SECOND));
}

Multiplexer::Multiplexer(const Request& request) : request_(request), clock_(request.start) {}

Multiplexer::~Multiplexer() {
  if (pipeline_) {
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  }
}

std::string Multiplexer::Prepare() {
  GError* error = nullptr;
  const std::string text = DescriptionOf(request_.container) + kSinkDescription;
  pipeline_.reset(gst_parse_launch(text.c_str(), &error));
  const OwnedError reason(error);
  if (reason) {
    return std::string("cannot make the pipeline: ") + reason->message;
  }
  multiplexer_ = Named(pipeline_.get(), "multiplexer");
  sink_ = Named(pipeline_.get(), "output");
  GstAppSinkCallbacks callbacks{};
  callbacks.new_sample = OnSample;
  gst_app_sink_set_callbacks(GST_APP_SINK(sink_.get()), &callbacks, this, nullptr);
  if (request_.keepsFilmClock && request_.container == Container::kMp4) {
    const OwnedObject<GstPad> pieces(gst_element_get_static_pad(sink_.get(), "sink"));
    gst_pad_add_probe(pieces.get(), GST_PAD_PROBE_TYPE_BUFFER, OnPiece, this, nullptr);
  }
  return "";
}

OwnedMini<GstCaps> Multiplexer::Add(Track track) {
  Input& input = Of(track);
  const bool isThere = input.source || Connect(track, input);
  return OwnedMini<GstCaps>(isThere ? gst_caps_ref(input.formats.get()) : nullptr);
}

bool Multiplexer::Connect(Track track, Input& input) {
  const OwnedObject<GstPad> place(
      gst_element_request_pad_simple(multiplexer_.get(), PadOf(request_.container, track)));
  GstElement* const source = gst_element_factory_make("appsrc", nullptr);
  if (place == nullptr || source == nullptr) {
    return false;
  }
  g_object_set(source, "format", GST_FORMAT_TIME, "block", TRUE, "max-bytes", kMostBytes, nullptr);
  gst_bin_add(GST_BIN(pipeline_.get()), source);
  input.source.reset(GST_ELEMENT(gst_object_ref(source)));
  input.formats.reset(gst_pad_query_caps(place.get(), nullptr));
  const OwnedObject<GstPad> output(gst_element_get_static_pad(source, "src"));
  gst_pad_add_probe(output.get(), GST_PAD_PROBE_TYPE_BUFFER, OnTaken, this, nullptr);
  return gst_pad_link(output.get(), place.get()) == GST_PAD_LINK_OK;
}

void Multiplexer::Start() {
  // Why it fails, if it does, comes as a message.
  gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
}

int Multiplexer::Admit() {
  const std::lock_guard<std::mutex> lock(mutex_);
  hasRoom_.notify_all();
  for (Input& input : inputs_) {
    input.isJoining = input.newest.has_value();
  }
  return ++admitted_;
}

void Multiplexer::Refuse(int pipeline) {
  const std::lock_guard<std::mutex> lock(mutex_);
  admitted_ += pipeline == admitted_ ? 1 : 0;
  hasRoom_.notify_all();
}

// A little before the next packet is due, because times are rounded.
GstClockTime Multiplexer::NextTimeOf(const Input& input) {
  return input.newest ? *input.newest + input.duration / 2 + 1 : 0;
}

GstClockTime Multiplexer::NextTime(Track track) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return NextTimeOf(Of(track));
}

bool Multiplexer::IsNew(int pipeline, Track track, const GstBuffer& packet) {
  Input& input = Of(track);
  const GstClockTime time = GST_BUFFER_PTS(&packet);
  const bool isKept =
      !input.isJoining || (GST_CLOCK_TIME_IS_VALID(time) && time >= NextTimeOf(input));
  if (pipeline == admitted_ && isKept) {
    input.isJoining = false;
    input.newest = GST_CLOCK_TIME_IS_VALID(time) ? time : input.newest;
    input.duration = GST_BUFFER_DURATION_IS_VALID(&packet) ? GST_BUFFER_DURATION(&packet) : 0;
  }
  return isKept;
}

bool Multiplexer::HasRoom(Track track) const {
  const Input& other = Of(track == Track::kPictures ? Track::kSound : Track::kPictures);
  const bool isStarved = other.source && !other.hasEnded && LevelOf(other.source) == 0;
  return isStarved || LevelOf(Of(track).source) < kMostPackets;
}

GstPadProbeReturn Multiplexer::OnTaken(GstPad* /*pad*/, GstPadProbeInfo* /*info*/, gpointer self) {
  auto* const multiplexer = static_cast<Multiplexer*>(self);
  const std::lock_guard<std::mutex> lock(multiplexer->mutex_);
  multiplexer->hasRoom_.notify_all();
  return GST_PAD_PROBE_OK;
}

GstFlowReturn Multiplexer::Take(int pipeline, Track track, GstSample* sample,
                                GstClockTimeDiff offset) {
  Input& input = Of(track);
  const std::lock_guard<std::mutex> order(input.order);
  OwnedMini<GstBuffer> packet(WithRunningTimes(sample, offset));
  auto* const source = GST_APP_SRC(input.source.get());
  {
    std::unique_lock<std::mutex> lock(mutex_);
    hasRoom_.wait(lock, [&] { return pipeline != admitted_ || HasRoom(track); });
    const bool isNew = IsNew(pipeline, track, *packet);
    if (pipeline != admitted_ || !isNew) {
      return pipeline != admitted_ ? GST_FLOW_EOS : GST_FLOW_OK;
    }
  }
  // The container states the first pipeline's format; key frames carry what has changed.
  const OwnedMini<GstCaps> stated(gst_app_src_get_caps(source));
  if (stated == nullptr) {
    gst_app_src_set_caps(source, gst_sample_get_caps(sample));
  }
  Move(*packet, BaseOf(request_));
  return gst_app_src_push_buffer(source, packet.release());
}

void Multiplexer::End(Track track) {
  if (Of(track).source) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      Of(track).hasEnded = true;
    }
    gst_app_src_end_of_stream(GST_APP_SRC(Of(track).source.get()));
  }
}

GstFlowReturn Multiplexer::OnSample(GstAppSink* /*sink*/, gpointer self) {
  auto* const multiplexer = static_cast<Multiplexer*>(self);
  if (!multiplexer->isOutputAnnounced_.exchange(true)) {
    GstElement* const element = multiplexer->pipeline_.get();
    gst_element_post_message(element, gst_message_new_application(
                                          GST_OBJECT(element), gst_structure_new_empty(kOutput)));
  }
  return GST_FLOW_OK;
}

GstPadProbeReturn Multiplexer::OnPiece(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer self) {
  FragmentClock& clock = static_cast<Multiplexer*>(self)->clock_;
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

OwnedMini<GstSample> Multiplexer::Pull() {
  isOutputAnnounced_ = false;
  return OwnedMini<GstSample>(gst_app_sink_try_pull_sample(GST_APP_SINK(sink_.get()), 0));
}

}  // namespace orvo::gst
