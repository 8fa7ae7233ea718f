// The end of the conversion: puts pictures and sound into the container. It outlives the pipelines
// that feed it, so the output stays one stream when one of them takes over from another.
#pragma once

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

#include "gst/arguments.h"
#include "gst/fragment_clock.h"
#include "gst/owned.h"

namespace orvo::gst {

// Where the request wants the film to start.
GstClockTime StartOf(const Request& request);

enum class Track { kPictures, kSound };

class Multiplexer {
 public:
  // The application message that its bus gets when there is output to pull.
  static constexpr char kOutput[] = "output";

  explicit Multiplexer(const Request& request);
  ~Multiplexer();
  Multiplexer(const Multiplexer&) = delete;
  Multiplexer& operator=(const Multiplexer&) = delete;

  // Returns what is wrong, or an empty text.
  std::string Prepare();
  // Adds a track to the container, if it has none of this kind. Returns the formats that it takes;
  // nothing if the plugins are not complete.
  OwnedMini<GstCaps> Add(Track track);
  // After the tracks were added.
  void Start();

  // Makes the caller's pipeline the one that may feed. What others still deliver is refused.
  // Returns its number.
  int Admit();
  // Takes nothing more from this pipeline.
  void Refuse(int pipeline);
  // Behind which running time the next packet of a track is new; 0 before the first packet.
  GstClockTime NextTime(Track track) const;

  // From the threads of a pipeline: takes a packet whose running time is `offset` off. Waits while
  // the container has enough of this track.
  GstFlowReturn Take(int pipeline, Track track, GstSample* sample, GstClockTimeDiff offset);
  // The track has ended.
  void End(Track track);

  // The next piece of output; nothing while there is none.
  OwnedMini<GstSample> Pull();

  GstElement* Element() const { return pipeline_.get(); }

 private:
  struct Input {
    OwnedObject<GstElement> source;
    OwnedMini<GstCaps> formats;
    std::mutex order;                      // one packet after the other
    std::optional<GstClockTime> newest{};  // running time of the last packet
    GstClockTime duration = 0;             // its duration
    bool isJoining = false;                // the packets of another pipeline follow
    bool hasEnded = false;
  };

  static GstFlowReturn OnSample(GstAppSink* sink, gpointer self);
  static GstPadProbeReturn OnTaken(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  static GstPadProbeReturn OnPiece(GstPad* pad, GstPadProbeInfo* info, gpointer self);

  Input& Of(Track track) { return inputs_[static_cast<size_t>(track)]; }
  const Input& Of(Track track) const { return inputs_[static_cast<size_t>(track)]; }
  static GstClockTime NextTimeOf(const Input& input);
  bool HasRoom(Track track) const;
  bool IsNew(int pipeline, Track track, const GstBuffer& packet);
  bool Connect(Track track, Input& input);

  const Request& request_;
  OwnedObject<GstElement> pipeline_;
  OwnedObject<GstElement> multiplexer_;
  OwnedObject<GstElement> sink_;
  FragmentClock clock_;  // of MP4
  std::atomic<bool> isOutputAnnounced_ = false;
  mutable std::mutex mutex_;  // for what follows
  std::condition_variable hasRoom_;
  std::array<Input, 2> inputs_;
  int admitted_ = 0;
};

}  // namespace orvo::gst
