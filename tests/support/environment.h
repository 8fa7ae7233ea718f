// Environment variables of a test.
#pragma once

#include <cstdlib>
#include <map>
#include <string>

namespace test {

using Variables = std::map<std::string, std::string>;

// Sets variables for as long as the object lives.
class Environment {
 public:
  explicit Environment(const Variables& variables) : variables_(variables) {
    for (const auto& [name, value] : variables_) {
      setenv(name.c_str(), value.c_str(), 1);
    }
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  ~Environment() {
    for (const auto& [name, value] : variables_) {
      unsetenv(name.c_str());
    }
  }

 private:
  Variables variables_;
};

}  // namespace test
