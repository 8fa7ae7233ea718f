#include "gst/output.h"

#include <unistd.h>
#include <cerrno>
#include <climits>

#include <algorithm>

namespace orvo::gst {

void Output::Take(OwnedMini<GstSample> sample) {
  Drop();
  sample_ = std::move(sample);
  GstBuffer* const buffer = gst_sample_get_buffer(sample_.get());
  if (buffer == nullptr || gst_buffer_map(buffer, &map_, GST_MAP_READ) == FALSE) {
    map_ = GST_MAP_INFO_INIT;
    hasFailed_ = buffer != nullptr;
  }
}

void Output::Write() {
  const size_t size = std::min<size_t>(PIPE_BUF, map_.size - taken_);
  const ssize_t count = write(fd_.Get(), map_.data + taken_, size);
  if (count > 0) {
    taken_ += static_cast<size_t>(count);
    hasBegun_ = true;
  } else if (errno != EINTR && errno != EAGAIN) {
    hasFailed_ = true;
  }
}

void Output::Drop() {
  if (map_.memory != nullptr) {
    gst_buffer_unmap(gst_sample_get_buffer(sample_.get()), &map_);
  }
  map_ = GST_MAP_INFO_INIT;
  taken_ = 0;
  sample_.reset();
}

}  // namespace orvo::gst
