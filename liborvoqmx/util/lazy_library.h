// Shared libraries that only some requests need. A request process lives for milliseconds, and
// mapping what it does not use can cost it more than its work.
#pragma once

#include <dlfcn.h>

namespace orvo {

// A library loaded on construction and kept for the process's life.
class LazyLibrary {
 public:
  explicit LazyLibrary(const char* soname) : handle_(dlopen(soname, RTLD_NOW | RTLD_LOCAL)) {}

  bool IsLoaded() const { return handle_ != nullptr; }

  // Points `function` at the library's function of that name; false when there is none.
  template <typename Function>
  bool Find(const char* name, Function& function) const {
    function = IsLoaded() ? reinterpret_cast<Function>(dlsym(handle_, name)) : nullptr;
    return function != nullptr;
  }

 private:
  void* handle_;
};

}  // namespace orvo
