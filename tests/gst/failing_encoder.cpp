// A plugin with an H.264 encoder that ranks before the software ones and does not work: what it is
// called by ORVO_TEST_ENCODER is how. "fails" reports an error at its first picture, "hangs" takes
// pictures and writes nothing.
#include <gst/gst.h>

#include <cstring>

namespace {

struct FailingEncoder {
  GstElement element;
};
struct FailingEncoderClass {
  GstElementClass parent;
};

GstStaticPadTemplate sinkTemplate =
    GST_STATIC_PAD_TEMPLATE("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-raw"));
GstStaticPadTemplate sourceTemplate =
    GST_STATIC_PAD_TEMPLATE("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS("video/x-h264"));

GType failing_encoder_get_type();
G_DEFINE_TYPE(FailingEncoder, failing_encoder, GST_TYPE_ELEMENT)

GstFlowReturn OnPicture(GstPad* /*pad*/, GstObject* parent, GstBuffer* buffer) {
  gst_buffer_unref(buffer);
  if (g_strcmp0(g_getenv("ORVO_TEST_ENCODER"), "hangs") == 0) {
    return GST_FLOW_OK;
  }
  GST_ELEMENT_ERROR(parent, STREAM, ENCODE, ("the card is on fire"), (nullptr));
  return GST_FLOW_ERROR;
}

gboolean OnEvent(GstPad* /*pad*/, GstObject* /*parent*/, GstEvent* event) {
  gst_event_unref(event);
  return TRUE;
}

void failing_encoder_class_init(FailingEncoderClass* type) {
  auto* const element = reinterpret_cast<GstElementClass*>(type);
  gst_element_class_add_static_pad_template(element, &sinkTemplate);
  gst_element_class_add_static_pad_template(element, &sourceTemplate);
  gst_element_class_set_static_metadata(element, "Failing encoder", "Codec/Encoder/Video/Hardware",
                                        "Does not work", "Mirevo");
}

void failing_encoder_init(FailingEncoder* self) {
  GstPad* const sink = gst_pad_new_from_static_template(&sinkTemplate, "sink");
  gst_pad_set_chain_function(sink, OnPicture);
  gst_pad_set_event_function(sink, OnEvent);
  gst_element_add_pad(GST_ELEMENT(self), sink);
  gst_element_add_pad(GST_ELEMENT(self), gst_pad_new_from_static_template(&sourceTemplate, "src"));
}

gboolean Register(GstPlugin* plugin) {
  return gst_element_register(plugin, "v4l2h264enc", GST_RANK_PRIMARY + 1,
                              failing_encoder_get_type());
}

}  // namespace

#define PACKAGE "orvotest"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, orvotest, "An encoder that does not work",
                  Register, "1.0", "BSD", "orvotest", "https://mirevo.invalid")
