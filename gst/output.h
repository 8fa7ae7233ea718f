// The output descriptor, written to without ever waiting in write(2).
#pragma once

#include <gst/gst.h>

#include <cstddef>

#include "gst/owned.h"
#include "platform/unique_fd.h"

namespace orvo::gst {

class Output {
 public:
  explicit Output(int fd) : fd_(fd) {}  // takes `fd`

  int Descriptor() const { return fd_.Get(); }
  bool IsEmpty() const { return map_.size == taken_; }  // nothing waits to be written
  bool HasBegun() const { return hasBegun_; }
  bool HasFailed() const { return hasFailed_; }

  // Takes the next piece. Only when empty.
  void Take(OwnedMini<GstSample> sample);

  // Writes a part, as much as a pipe that poll(2) calls writable takes at once.
  void Write();

  ~Output() { Drop(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

 private:
  void Drop();

  UniqueFd fd_;
  OwnedMini<GstSample> sample_;
  GstMapInfo map_ = GST_MAP_INFO_INIT;
  size_t taken_ = 0;
  bool hasBegun_ = false;
  bool hasFailed_ = false;
};

}  // namespace orvo::gst
