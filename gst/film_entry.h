// Entering a film: what leaves a decoder before the wanted start is dropped, and what follows
// counts its time from there.
#pragma once

#include <gst/gst.h>

#include <atomic>
#include <optional>

namespace orvo::gst {

// A pad's stream, held back until the film's origin is known. Must outlive the pad's data flow.
class FilmEntry {
 public:
  static constexpr char kHeld[] = "held";

  // Once the first buffer, or the stream's end, has arrived and is held back, `pipeline` posts the
  // application message kHeld.
  FilmEntry(GstPad* pad, GstElement* pipeline);
  FilmEntry(const FilmEntry&) = delete;
  FilmEntry& operator=(const FilmEntry&) = delete;

  // Has a buffer arrived, and not just the end?
  bool HasData() const { return hasData_; }

  // Where the first buffer is in the demuxer's times. Nothing when it has no time.
  std::optional<GstClockTime> First() const;

  // From here on `start`, in the demuxer's times, has the running time 0, and nothing from before
  // it passes. Only for a stream that is held back.
  void Open(GstClockTime start);

  // Has the first buffer, or the end, arrived?
  bool IsHeld() const { return isHeld_; }

  // Lets data pass, once Open() was called and the seek, if any, was made.
  void Release();

  // Ends the stream for what is behind the pad, instead of its next buffer.
  void End();

  GstPad* Pad() const { return pad_; }

 private:
  static GstPadProbeReturn OnHeld(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  static GstPadProbeReturn OnData(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  GstPadProbeReturn Hold(GstPadProbeInfo* info);
  GstPadProbeReturn Look(GstPadProbeInfo* info);
  void Rewrite(GstPadProbeInfo* info, GstEvent* event);
  GstPadProbeReturn Clip(GstPadProbeInfo* info);
  GstPadProbeReturn ClipSound(GstPadProbeInfo* info, GstBuffer* buffer);
  GstPadProbeReturn Refuse();

  GstPad* pad_;           // of the pipeline, which outlives this
  GstElement* pipeline_;  // the same
  gulong hold_;
  std::atomic<bool> isHeld_ = false;
  std::atomic<bool> hasData_ = false;
  std::atomic<GstClockTime> first_ = GST_CLOCK_TIME_NONE;
  std::atomic<GstClockTime> start_ = GST_CLOCK_TIME_NONE;
  std::atomic<bool> isEnding_ = false;
  bool hasEnded_ = false;
  GstSegment original_;
  GstSegment segment_;
  int soundRate_ = 0;   // of decoded sound; 0 for everything else
  int soundFrame_ = 0;  // bytes of one sample of every channel
};

// Drops what an encoder writes for the time before its first input: a packet of sound that only
// gets a decoder into step. Times then start with the film's.
void DropPriming(GstPad* pad);

}  // namespace orvo::gst
