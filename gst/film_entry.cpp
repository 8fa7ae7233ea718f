#include "gst/film_entry.h"

#include <gst/audio/audio.h>

#include <algorithm>

#include "gst/owned.h"

namespace orvo::gst {
namespace {

// The film's clock may tick coarser than the start: a picture may come half of a tick early.
constexpr GstClockTime kEarlyPicture = 45 * GST_USECOND;

GstPadProbeReturn OnEncoded(GstPad* pad, GstPadProbeInfo* info, gpointer /*data*/) {
  const GstClockTime time = GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info));
  GstEvent* const event = gst_pad_get_sticky_event(pad, GST_EVENT_SEGMENT, 0);
  const OwnedMini<GstEvent> owner(event);
  const GstSegment* segment = nullptr;
  if (event != nullptr) {
    gst_event_parse_segment(event, &segment);
  }
  const bool isEarly = segment != nullptr && GST_CLOCK_TIME_IS_VALID(time) && time < segment->start;
  return isEarly ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
}

}  // namespace

void DropPriming(GstPad* pad) {
  gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, OnEncoded, nullptr, nullptr);
}

FilmEntry::FilmEntry(GstPad* pad, GstElement* pipeline) : pad_(pad), pipeline_(pipeline) {
  gst_segment_init(&original_, GST_FORMAT_TIME);
  gst_segment_init(&segment_, GST_FORMAT_TIME);
  constexpr auto kData = GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM | GST_PAD_PROBE_TYPE_BUFFER;
  gst_pad_add_probe(pad_, static_cast<GstPadProbeType>(kData), OnData, this, nullptr);
  constexpr auto kHold = kData | GST_PAD_PROBE_TYPE_BLOCK;
  hold_ = gst_pad_add_probe(pad_, static_cast<GstPadProbeType>(kHold), OnHeld, this, nullptr);
}

std::optional<GstClockTime> FilmEntry::First() const {
  const GstClockTime first = first_;
  return GST_CLOCK_TIME_IS_VALID(first) ? std::optional(first) : std::nullopt;
}

void FilmEntry::Open(GstClockTime start) {
  start_ = start;
}

void FilmEntry::Release() {
  gst_pad_remove_probe(pad_, hold_);
}

void FilmEntry::End() {
  isEnding_ = true;
}

GstPadProbeReturn FilmEntry::OnHeld(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer self) {
  return static_cast<FilmEntry*>(self)->Hold(info);
}

GstPadProbeReturn FilmEntry::OnData(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer self) {
  auto* const entry = static_cast<FilmEntry*>(self);
  const bool isBuffer = (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) != 0;
  return isBuffer ? entry->Clip(info) : entry->Look(info);
}

GstPadProbeReturn FilmEntry::Hold(GstPadProbeInfo* info) {
  const bool isBuffer = (GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) != 0;
  if (!isBuffer && GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) != GST_EVENT_EOS) {
    return GST_PAD_PROBE_PASS;
  }
  if (isHeld_) {
    return GST_PAD_PROBE_OK;
  }
  if (isBuffer) {
    hasData_ = true;
    first_ = gst_segment_to_stream_time(&original_, GST_FORMAT_TIME,
                                        GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info)));
  }
  isHeld_ = true;
  gst_element_post_message(pipeline_, gst_message_new_application(GST_OBJECT(pipeline_),
                                                                  gst_structure_new_empty(kHeld)));
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn FilmEntry::Look(GstPadProbeInfo* info) {
  GstEvent* const event = GST_PAD_PROBE_INFO_EVENT(info);
  if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    GstAudioInfo sound;
    const bool isSound = gst_structure_has_name(gst_caps_get_structure(caps, 0), "audio/x-raw") &&
                         gst_audio_info_from_caps(&sound, caps) == TRUE;
    soundRate_ = isSound ? GST_AUDIO_INFO_RATE(&sound) : 0;
    soundFrame_ = isSound ? GST_AUDIO_INFO_BPF(&sound) : 0;
  } else if (GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT) {
    gst_event_copy_segment(event, &original_);
    Rewrite(info, event);
  }
  return GST_PAD_PROBE_OK;
}

void FilmEntry::Rewrite(GstPadProbeInfo* info, GstEvent* event) {
  const GstClockTime start = start_;
  if (!GST_CLOCK_TIME_IS_VALID(start)) {
    return;
  }
  segment_ = original_;
  segment_.start = gst_segment_position_from_stream_time(&original_, GST_FORMAT_TIME, start);
  segment_.time = start;
  segment_.position = segment_.start;
  segment_.base = 0;
  segment_.offset = 0;
  GST_PAD_PROBE_INFO_DATA(info) = gst_event_new_segment(&segment_);
  gst_event_unref(event);
}

GstPadProbeReturn FilmEntry::Refuse() {
  const OwnedObject<GstPad> peer(gst_pad_get_peer(pad_));
  if (!hasEnded_ && peer != nullptr) {
    hasEnded_ = true;
    gst_pad_send_event(peer.get(), gst_event_new_eos());
  }
  return GST_PAD_PROBE_DROP;
}

GstPadProbeReturn FilmEntry::Clip(GstPadProbeInfo* info) {
  if (isEnding_) {
    return Refuse();
  }
  GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
  const GstClockTime time = GST_BUFFER_PTS(buffer);
  if (!GST_CLOCK_TIME_IS_VALID(start_.load()) || !GST_CLOCK_TIME_IS_VALID(time)) {
    return GST_PAD_PROBE_OK;
  }
  if (soundRate_ > 0) {
    return ClipSound(info, buffer);
  }
  if (time + kEarlyPicture < segment_.start) {
    return GST_PAD_PROBE_DROP;
  }
  if (time < segment_.start) {
    buffer = gst_buffer_make_writable(buffer);
    GST_BUFFER_PTS(buffer) = segment_.start;
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
  }
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn FilmEntry::ClipSound(GstPadProbeInfo* info, GstBuffer* buffer) {
  GstBuffer* const rest =
      gst_audio_buffer_clip(gst_buffer_ref(buffer), &segment_, soundRate_, soundFrame_);
  if (rest == nullptr) {
    return GST_PAD_PROBE_DROP;
  }
  gst_buffer_unref(buffer);
  GST_PAD_PROBE_INFO_DATA(info) = rest;
  return GST_PAD_PROBE_OK;
}

}  // namespace orvo::gst
