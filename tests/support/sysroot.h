// An appliance in a directory of its own.
#pragma once

#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace test {

// Every test gets a fresh directory with "/etc.defaults/orvoinfo.conf" for the platform "avoton"
// (software only) and one volume, and ORVO_SYSROOT pointing to it. All of it is removed at the end.
class Sysroot : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Makes the appliance one of this platform.
  void SetPlatform(const std::string& platform) const;

  // Runs `body` in a process of its own on an appliance of this platform, which a process settles
  // once.
  void On(const std::string& platform, const std::function<void()>& body) const;

  const std::string& Root() const { return root_; }
  // Where a path of the appliance lies.
  std::string Path(const std::string& path) const { return root_ + path; }

  // Files of the appliance. Missing directories are made.
  void Write(const std::string& path, const std::string& content) const;
  void WriteJson(const std::string& path, const Json::Value& value) const;
  std::string Read(const std::string& path) const;
  Json::Value ReadJson(const std::string& path) const;
  bool Exists(const std::string& path) const;
  void MakeDirectory(const std::string& path) const;
  // An executable shell script; its full path.
  std::string WriteScript(const std::string& path, const std::string& body) const;

  // The registry as it stands on disk, and as it shall stand.
  Json::Value Registry() const { return ReadJson("/tmp/Mirevo/enabled"); }
  void SetRegistry(const Json::Value& entries) const;

 private:
  std::string root_;
};

// One entry of the registry.
Json::Value RegistryEntry(pid_t pid, bool hardware, bool offline = false);
Json::Value JsonArray(const std::vector<Json::Value>& elements);
Json::Value ParseText(const std::string& text);

// All of a file; "" when it is not there.
std::string ReadWhole(const std::string& path);

// The media folder that make_media.sh filled, and one film in it.
std::string Film(const std::string& name);

}  // namespace test
