#include "stream/direct_stream.h"

namespace LibOrvoQMX {

DirectStream::DirectStream(const std::string& streamId, const std::string& streamKind)
    : QMXStream(streamId, streamKind) {}

DirectStream::DirectStream(const QMXMetaData& plan, const std::string& streamKind)
    : QMXStream(plan, streamKind) {}

DirectStream::~DirectStream() = default;

bool DirectStream::Close() {
  return CloseStreamCommon();
}

}  // namespace LibOrvoQMX
