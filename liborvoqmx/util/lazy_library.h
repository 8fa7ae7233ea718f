// Loads shared libraries that only some requests need. A request process lives for milliseconds.
// Mapping an unused library can take longer than its work.
#pragma once

#include <dlfcn.h>

namespace orvo {

// A library. The constructor loads it, and it stays loaded until the process ends.
class LazyLibrary {
 public:
  explicit LazyLibrary(const char* soname) : handle_(dlopen(soname, RTLD_NOW | RTLD_LOCAL)) {}

  bool IsLoaded() const { return handle_ != nullptr; }

  // Points `function` at the library's function with that name. Returns false if there is none.
  template <typename Function>
  bool Find(const char* name, Function& function) const {
    function = IsLoaded() ? reinterpret_cast<Function>(dlsym(handle_, name)) : nullptr;
    return function != nullptr;
  }

 private:
  void* handle_;
};

}  // namespace orvo
