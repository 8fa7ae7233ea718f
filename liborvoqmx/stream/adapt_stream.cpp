#include "stream/adapt_stream.h"

#include <array>

#include "contract/stream_files.h"
#include "platform/log.h"
#include "platform/plat.h"
#include "playlist/address_text.h"
#include "state/stream_directory.h"
#include "stream/pipeline/monitor.h"

namespace LibOrvoQMX {
namespace {

// Parameters of the request that the request for each fragment repeats.
struct PassedParameter {
  const char* name;
  bool quoted;  // under the newer API
};
constexpr std::array kPassedTexts = {
    PassedParameter{"method", false},    PassedParameter{"token", true},
    PassedParameter{"_sid", true},       PassedParameter{"OrvoToken", false},
    PassedParameter{"sharing_id", true}, PassedParameter{"ticket", false},
};

// A text member of the request; null for a member of another type.
const Json::Value* FindText(const Json::Value& request, const char* name) {
  if (!request.isObject() || !request[name].isString()) {
    return nullptr;
  }
  return &request[name];
}

std::string TextOf(const Json::Value& request, const char* name) {
  const Json::Value* const text = FindText(request, name);
  return text != nullptr ? text->asString() : "";
}

}  // namespace

AdaptStream::AdaptStream(const std::string& streamId, const std::string& streamKind)
    : QMXStream(streamId, streamKind) {}

AdaptStream::AdaptStream(const QMXMetaData& plan, const std::string& streamKind)
    : QMXStream(plan, streamKind) {}

AdaptStream::~AdaptStream() = default;

bool AdaptStream::Close() {
  return CloseStreamCommon();
}

bool AdaptStream::InitAdaptStream(const Json::Value& request, const std::string& audioId) {
  const bool force = request.isObject() && request["force_open_qmx"].isBool() &&
                     request["force_open_qmx"].asBool();
  return InitStreamCommon(audioId, force) && !TextOf(request, "url").empty();
}

bool AdaptStream::IsWebapi5(const Json::Value& request) {
  return TextOf(request, "api").find("ORVO.Mirevo2") != std::string::npos;
}

std::string AdaptStream::GetStreamURL(const Json::Value& request) const {
  const std::string url = TextOf(request, "url");
  const std::string format = TextOf(request, "format");
  if (url.empty() || format.empty() || m_streamKind.empty() || m_streamId.empty()) {
    return "";
  }
  // The Smooth manifest carries the address in an XML attribute.
  const std::string separator = m_streamKind == "SS" ? "&amp;" : "&";
  const bool isNewer = IsWebapi5(request);
  const std::string quote = isNewer ? "%22" : "";

  std::string text = url + "?format=" + format + separator;
  text += (isNewer ? "stream_id=" : "id=") + quote + m_streamId + quote;
  if (const Json::Value* api = FindText(request, "api"); api != nullptr) {
    text += separator + "api=" + api->asString();
  }
  if (request["version"].isIntegral()) {
    text += separator + "version=" + AddressText(request["version"]);
  }
  for (const PassedParameter& parameter : kPassedTexts) {
    const Json::Value* const value = FindText(request, parameter.name);
    if (value != nullptr) {
      const std::string around = parameter.quoted ? quote : "";
      text += separator + parameter.name + "=" + around + value->asString() + around;
    }
  }
  return text;
}

bool AdaptStream::SeekingHandler() const {
  if (m_streamId.empty() || m_streamKind.empty()) {
    return false;
  }
  SaveMonitorPid(0, true);
  if (m_streamKind == "HLS") {
    // find starts a program for each file, and the viewer waits for all of them.
    Directory().RemoveSegments();
  }
  const std::string pattern = m_streamKind == "HLS" ? orvo::kAnySegment : orvo::kFragmentsFolder;
  // "-depth" is needed: without it, find would enter the directory that it has just deleted and
  // report a failure.
  return PlatExecv("/bin/find", {"/bin/find", "-L", Directory().Path(), "-depth", "-name", pattern,
                                 "-exec", "/bin/rm", "-rf", "{}", ";"}) == 0;
}

bool AdaptStream::QMXIsTimeout(unsigned long seconds) const {
  if (m_streamId.empty()) {
    return false;
  }
  const auto idle = Directory().SecondsSinceAccess();
  return idle && *idle >= seconds;
}

bool AdaptStream::RemoveWhenAbandoned(const char* source) {
  if (!QMXIsTimeout(kIdleSeconds)) {
    return false;
  }
  orvo::Log(LOG_ERR, source, __LINE__, "time out for access [%d seconds]",
            static_cast<int>(kIdleSeconds));
  RemoveTransDir();
  return true;
}

}  // namespace LibOrvoQMX
