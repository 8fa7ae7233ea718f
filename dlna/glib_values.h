// Values of GLib and of the libraries on it with one owner.
#pragma once

#include <glib-object.h>

#include <memory>

namespace dlna {

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename Type>
using Object = std::unique_ptr<Type, Unref>;

struct Free {
  void operator()(void* memory) const { g_free(memory); }
};
using Text = std::unique_ptr<char, Free>;

struct FreeError {
  void operator()(GError* error) const { g_error_free(error); }
};
using Error = std::unique_ptr<GError, FreeError>;

struct FreeBytes {
  void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
};
using Bytes = std::unique_ptr<GBytes, FreeBytes>;

}  // namespace dlna
