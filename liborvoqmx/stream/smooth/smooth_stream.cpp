// Opening a Smooth Streaming stream. Its other tasks have files of their own.
#include "stream/smooth_stream.h"

#include "platform/log.h"
#include "util/saturate.h"

namespace LibOrvoQMX {
namespace {

constexpr char kKind[] = "SS";

}  // namespace

SmoothStream::SmoothStream(const std::string& streamId)
    : AdaptStream(streamId, kKind), m_profileKey(m_metaData.GetProfileKey()) {}

SmoothStream::SmoothStream(const QMXMetaData& plan)
    : AdaptStream(plan, kKind), m_profileKey(m_metaData.GetProfileKey()) {}

SmoothStream::~SmoothStream() = default;

bool SmoothStream::Init(const Json::Value& request, const Json::Value& /*options*/,
                        const std::string& audioId, const std::string& /*audioFormat*/) {
  if (InitAdaptStream(request, audioId)) {
    if (Predict_Manifest(request)) {
      return true;
    }
    ORVO_LOG("Failed to predect manifest for smooth streaming");
  }
  RemoveTransDir();
  return false;
}

int SmoothStream::GetSeekTimeInMillisecond() const {
  return Milliseconds(m_seekSeconds);
}

}  // namespace LibOrvoQMX
