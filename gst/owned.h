// Objects of GStreamer and GLib with one owner.
#pragma once

#include <gst/gst.h>

#include <memory>
#include <utility>

namespace orvo::gst {

struct ObjectRelease {
  void operator()(gpointer object) const { gst_object_unref(object); }
};
template <typename T>
using OwnedObject = std::unique_ptr<T, ObjectRelease>;

struct MiniObjectRelease {
  template <typename T>
  void operator()(T* object) const {
    gst_mini_object_unref(GST_MINI_OBJECT_CAST(object));
  }
};
template <typename T>
using OwnedMini = std::unique_ptr<T, MiniObjectRelease>;

struct MemoryRelease {
  void operator()(gpointer memory) const { g_free(memory); }
};
using OwnedText = std::unique_ptr<char, MemoryRelease>;

struct ErrorRelease {
  void operator()(GError* error) const { g_error_free(error); }
};
using OwnedError = std::unique_ptr<GError, ErrorRelease>;

// An event source of the main loop, removed with this object.
class Source {
 public:
  Source() = default;
  explicit Source(guint id) : id_(id) {}
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;
  ~Source() { Set(0); }

  bool IsSet() const { return id_ != 0; }
  void Set(guint id) {
    const guint old = std::exchange(id_, id);
    if (old != 0) {
      g_source_remove(old);
    }
  }
  void Forget() { id_ = 0; }  // its callback has removed it

 private:
  guint id_ = 0;
};

}  // namespace orvo::gst
