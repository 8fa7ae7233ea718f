// An appliance in its own directory.
#pragma once

#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace test {

// Every test gets a new directory with "/etc.defaults/orvoinfo.conf" for the platform "avoton"
// (software only) and with one volume. ORVO_SYSROOT points to it. The end of the test removes it.
class Sysroot : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Changes the platform of the appliance.
  void SetPlatform(const std::string& platform) const;

  // Runs `body` in a new process on an appliance of this platform. A new process is necessary
  // because a process reads the platform once.
  void On(const std::string& platform, const std::function<void()>& body) const;

  const std::string& Root() const { return root_; }
  // The real path of a path of the appliance.
  std::string Path(const std::string& path) const { return root_ + path; }

  // Files of the appliance. The functions create missing directories.
  void Write(const std::string& path, const std::string& content) const;
  void WriteJson(const std::string& path, const Json::Value& value) const;
  std::string Read(const std::string& path) const;
  Json::Value ReadJson(const std::string& path) const;
  bool Exists(const std::string& path) const;
  void MakeDirectory(const std::string& path) const;
  // Writes an executable shell script and returns its full path.
  std::string WriteScript(const std::string& path, const std::string& body) const;

  // Reads and replaces the registry on disk.
  Json::Value Registry() const { return ReadJson("/tmp/Mirevo/enabled"); }
  void SetRegistry(const Json::Value& entries) const;

 private:
  std::string root_;
};

// One entry of the registry.
Json::Value RegistryEntry(pid_t pid, bool hardware, bool offline = false);
Json::Value JsonArray(const std::vector<Json::Value>& elements);
Json::Value ParseText(const std::string& text);

// The content of a file; "" if it does not exist.
std::string ReadWhole(const std::string& path);

// The path of a film in the folder that make_media.sh filled.
std::string Film(const std::string& name);

}  // namespace test
