#include "support/sysroot.h"

#include <json/reader.h>
#include <json/writer.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/log_capture.h"
#include "support/processes.h"

namespace test {

namespace fs = std::filesystem;

void Sysroot::SetUp() {
  const char* const base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr ? base : "/tmp") + "/orvo-test-XXXXXX";
  ASSERT_NE(mkdtemp(pattern.data()), nullptr);
  root_ = pattern;
  // Services with other ids use the directory too.
  ASSERT_EQ(chmod(root_.c_str(), 0755), 0);
  ASSERT_EQ(setenv("ORVO_SYSROOT", root_.c_str(), 1), 0);
  SetPlatform("avoton");
  MakeDirectory("/volume1");
  TakeLog();
}

void Sysroot::TearDown() {
  unsetenv("ORVO_SYSROOT");
  std::error_code failure;
  fs::remove_all(root_, failure);
  EXPECT_FALSE(failure) << failure.message();
}

void Sysroot::SetPlatform(const std::string& platform) const {
  Write("/etc.defaults/orvoinfo.conf", "unique=\"orvo_" + platform + "_unit\"\n");
}

void Sysroot::On(const std::string& platform, const std::function<void()>& body) const {
  SCOPED_TRACE("on " + platform);
  SetPlatform(platform);
  InChild(body);
}

void Sysroot::Write(const std::string& path, const std::string& content) const {
  MakeDirectory(fs::path(path).parent_path());
  std::ofstream file(Path(path), std::ios::binary);
  file << content;
  file.close();
  ASSERT_TRUE(file.good()) << Path(path);
}

void Sysroot::WriteJson(const std::string& path, const Json::Value& value) const {
  Write(path, Json::writeString(Json::StreamWriterBuilder(), value));
}

std::string Sysroot::Read(const std::string& path) const {
  return ReadWhole(Path(path));
}

Json::Value Sysroot::ReadJson(const std::string& path) const {
  return ParseText(Read(path));
}

bool Sysroot::Exists(const std::string& path) const {
  std::error_code failure;
  return fs::symlink_status(Path(path), failure).type() != fs::file_type::not_found;
}

void Sysroot::MakeDirectory(const std::string& path) const {
  fs::create_directories(Path(path));
}

std::string Sysroot::WriteScript(const std::string& path, const std::string& body) const {
  Write(path, "#!/bin/sh\n" + body);
  fs::permissions(Path(path), fs::perms(0755));
  return Path(path);
}

void Sysroot::SetRegistry(const Json::Value& entries) const {
  WriteJson("/tmp/Mirevo/enabled", entries);
}

Json::Value RegistryEntry(pid_t pid, bool hardware, bool offline) {
  Json::Value entry;
  entry["PID"] = pid;
  entry["hardware_transcode"] = hardware;
  entry["offline_conversion"] = offline;
  return entry;
}

Json::Value JsonArray(const std::vector<Json::Value>& elements) {
  Json::Value array(Json::arrayValue);
  for (const Json::Value& element : elements) {
    array.append(element);
  }
  return array;
}

Json::Value ParseText(const std::string& text) {
  Json::Value value;
  std::istringstream stream(text);
  Json::parseFromStream(Json::CharReaderBuilder(), stream, &value, nullptr);
  return value;
}

std::string ReadWhole(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

std::string Film(const std::string& name) {
  return std::string(ORVO_TEST_MEDIA) + "/" + name;
}

}  // namespace test
