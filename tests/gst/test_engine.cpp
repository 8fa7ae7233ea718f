// A plugin with an encoder that calls itself one of video hardware and ranks before all others.
// x264 does its work. ORVO_TEST_ENGINE=picture=N lets it fail at that picture, hang=N lets it hang.
#include <gst/gst.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace {

struct TestEngine {
  GstBin bin;
  int pictures;
};
struct TestEngineClass {
  GstBinClass parent;
};

GType test_engine_get_type();
G_DEFINE_TYPE(TestEngine, test_engine, GST_TYPE_BIN)

// The picture of such a wish; 0 for none.
int Wished(const char* kind) {
  const char* const wish = g_getenv("ORVO_TEST_ENGINE");
  const bool isMeant = wish != nullptr && g_str_has_prefix(wish, kind) != FALSE;
  return isMeant ? static_cast<int>(strtol(wish + strlen(kind), nullptr, 10)) : 0;
}

GstPadProbeReturn OnPicture(GstPad* /*pad*/, GstPadProbeInfo* /*info*/, gpointer data) {
  auto* const self = static_cast<TestEngine*>(data);
  ++self->pictures;
  while (self->pictures == Wished("hang=")) {
    pause();
  }
  if (self->pictures == Wished("picture=")) {
    GST_ELEMENT_ERROR(self, STREAM, ENCODE, ("the card is on fire"), (nullptr));
    return GST_PAD_PROBE_DROP;
  }
  return GST_PAD_PROBE_OK;
}

void AddGhost(GstBin* bin, GstElement* encoder, const char* name) {
  GstPad* const inner = gst_element_get_static_pad(encoder, name);
  gst_element_add_pad(GST_ELEMENT(bin), gst_ghost_pad_new(name, inner));
  gst_object_unref(inner);
}

void test_engine_class_init(TestEngineClass* type) {
  gst_element_class_set_static_metadata(reinterpret_cast<GstElementClass*>(type), "Test engine",
                                        "Codec/Encoder/Video/Hardware", "Encodes on the processor",
                                        "Mirevo");
}

void test_engine_init(TestEngine* self) {
  GstElement* const encoder = gst_element_factory_make("x264enc", nullptr);
  gst_util_set_object_arg(G_OBJECT(encoder), "speed-preset", "ultrafast");
  gst_util_set_object_arg(G_OBJECT(encoder), "tune", "zerolatency");
  g_object_set(encoder, "key-int-max", 300, nullptr);
  gst_bin_add(&self->bin, encoder);
  AddGhost(&self->bin, encoder, "sink");
  AddGhost(&self->bin, encoder, "src");
  GstPad* const input = gst_element_get_static_pad(encoder, "sink");
  gst_pad_add_probe(input, GST_PAD_PROBE_TYPE_BUFFER, OnPicture, self, nullptr);
  gst_object_unref(input);
}

gboolean Register(GstPlugin* plugin) {
  return gst_element_register(plugin, "vah264enc", GST_RANK_PRIMARY + 1, test_engine_get_type());
}

}  // namespace

#define PACKAGE "orvoengine"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, orvoengine, "An encoder for tests",
                  Register, "1.0", "BSD", "orvoengine", "https://mirevo.invalid")
