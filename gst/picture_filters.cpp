#include "gst/picture_filters.h"

#include <gst/video/video.h>

#include <algorithm>
#include <cmath>

#include "gst/owned.h"

namespace orvo::gst {
namespace {

// Films that count in milliseconds are rounded, and so may be their cuts.
constexpr GstClockTime kRounding = 45 * GST_USECOND;

constexpr auto kData =
    static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM | GST_PAD_PROBE_TYPE_BUFFER);

int Even(double side) {
  return std::max(2, 2 * static_cast<int>(std::lround(side / 2)));
}

template <typename T>
void Delete(gpointer data) {
  delete static_cast<T*>(data);
}

struct Fitting {
  GstElement* filter;  // of the same pipeline
  PictureShape box;
};

void FitTo(const Fitting& fitting, GstCaps* caps) {
  GstVideoInfo info;
  if (gst_video_info_from_caps(&info, caps) == FALSE) {
    return;
  }
  const PictureShape size =
      FitPicture({GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info)},
                 GST_VIDEO_INFO_PAR_N(&info), GST_VIDEO_INFO_PAR_D(&info), fitting.box);
  const OwnedMini<GstCaps> wanted(gst_caps_new_simple(
      "video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, size.width, "height",
      G_TYPE_INT, size.height, "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr));
  g_object_set(fitting.filter, "caps", wanted.get(), nullptr);
}

// Which way up the film is comes behind its first caps, so those right before a picture count.
GstPadProbeReturn OnCaps(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data) {
  if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
    return GST_PAD_PROBE_REMOVE;
  }
  GstEvent* const event = GST_PAD_PROBE_INFO_EVENT(info);
  if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    FitTo(*static_cast<Fitting*>(data), caps);
  }
  return GST_PAD_PROBE_OK;
}

struct KeyFrames {
  GstClockTime start;
  GstClockTime interval;
  GstSegment segment;
  guint64 next;  // the multiple of the interval that has no key frame yet
};

void ForceAt(GstPad* pad, GstBuffer* buffer, KeyFrames& keys) {
  const GstClockTime time =
      gst_segment_to_running_time(&keys.segment, GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
  if (!GST_CLOCK_TIME_IS_VALID(time)) {
    return;
  }
  const guint64 number = (keys.start + time + kRounding) / keys.interval;
  if (number >= keys.next) {
    keys.next = number + 1;
    // Some encoders count their running time from elsewhere, so the next picture is meant without
    // one.
    gst_pad_send_event(
        pad, gst_video_event_new_downstream_force_key_unit(
                 GST_BUFFER_PTS(buffer), GST_CLOCK_TIME_NONE, GST_CLOCK_TIME_NONE, TRUE, 0));
  }
}

GstPadProbeReturn OnPicture(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
  auto& keys = *static_cast<KeyFrames*>(data);
  if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_BUFFER) != 0) {
    ForceAt(pad, GST_PAD_PROBE_INFO_BUFFER(info), keys);
  } else if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_SEGMENT) {
    gst_event_copy_segment(GST_PAD_PROBE_INFO_EVENT(info), &keys.segment);
  }
  return GST_PAD_PROBE_OK;
}

}  // namespace

PictureShape FitPicture(PictureShape picture, int pixelWidth, int pixelHeight, PictureShape box) {
  const double pixel =
      pixelWidth > 0 && pixelHeight > 0 ? static_cast<double>(pixelWidth) / pixelHeight : 1;
  const double width = picture.width * pixel;
  const double height = picture.height;
  double scale = 1;
  if (box.width > 0 && box.height > 0) {
    scale = std::min({1.0, box.width / width, box.height / height});
  }
  return {Even(width * scale), Even(height * scale)};
}

void FitPictures(GstPad* pad, GstElement* filter, PictureShape box) {
  gst_pad_add_probe(pad, kData, OnCaps, new Fitting{filter, box}, Delete<Fitting>);
}

void ForceKeyFrames(GstPad* pad, GstClockTime start, GstClockTime interval) {
  auto* const keys = new KeyFrames{start, interval, {}, 0};
  gst_segment_init(&keys->segment, GST_FORMAT_TIME);
  gst_pad_add_probe(pad, kData, OnPicture, keys, Delete<KeyFrames>);
}

}  // namespace orvo::gst
