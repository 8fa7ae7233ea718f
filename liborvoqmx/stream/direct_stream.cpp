#include "stream/direct_stream.h"

namespace LibOrvoQMX {

DirectStream::DirectStream(const std::string& streamId, const std::string& streamKind)
    : QMXStream(streamId, streamKind) {}

DirectStream::~DirectStream() = default;

bool DirectStream::Close() {
  return CloseStreamCommon();
}

}  // namespace LibOrvoQMX
