// The pipeline: a local file, decoders for one picture and one sound track, encoders, a
// multiplexer.
#pragma once

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "gst/arguments.h"
#include "gst/elements.h"
#include "gst/film_entry.h"
#include "gst/fragment_clock.h"
#include "gst/owned.h"

namespace orvo::gst {

class Pipeline {
 public:
  // The application message that its bus gets when there is output to pull.
  static constexpr char kOutput[] = "output";

  Pipeline(const Request& request, const Elements& elements);
  ~Pipeline();
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  // These return what is wrong, or an empty text.
  std::string Start();
  // After each message FilmEntry::kHeld: once every stream is held back, connects the encoders and
  // enters the film where the request says.
  std::string EnterWhenHeld();
  // After a message that says that the machine lacks a decoder.
  std::string GoOnWithout(const std::string& caps);

  // The next piece of output; nothing while there is none.
  OwnedMini<GstSample> Pull();

  // Ends the output as if the film ended here. False when there is no output that could end.
  bool End();

  GstElement* Element() const { return pipeline_.get(); }

  // The picture encoder's factory, borrowed; nothing before the film is entered.
  GstElementFactory* PictureEncoder() const;

  // The names of the decoders, encoders and the multiplexer at work.
  std::string Names() const;

 private:
  static gint OnStream(GstElement* decoder, GstStreamCollection* all, GstStream* stream,
                       gpointer self);
  static void OnPad(GstElement* decoder, GstPad* pad, gpointer self);
  static GstFlowReturn OnSample(GstAppSink* sink, gpointer self);
  static GstPadProbeReturn OnPiece(GstPad* pad, GstPadProbeInfo* info, gpointer self);

  void CountTracks(GstStreamCollection* all);
  bool IsEverythingHeld() const;
  std::string Enter();
  std::string ConnectPictures();
  std::string ConnectSound();
  void FilterPictures(GstElement* branch);
  std::string Connect(const FilmEntry& entry, GstElement* branch);
  void SetClock(GstPad* output);
  bool Seek(GstClockTime origin);

  const Request& request_;
  const Elements& elements_;
  OwnedObject<GstElement> pipeline_;
  OwnedObject<GstElement> multiplexer_;
  OwnedObject<GstElement> sink_;
  OwnedObject<GstElement> encoder_;
  FragmentClock clock_;  // of MP4
  std::atomic<int> pictureTracks_ = 0;
  std::atomic<int> soundTracks_ = 0;
  std::atomic<bool> isOutputAnnounced_ = false;
  mutable std::mutex mutex_;  // for the entries' existence
  std::unique_ptr<FilmEntry> pictures_;
  std::unique_ptr<FilmEntry> sound_;
  bool lacksSoundDecoder_ = false;
  bool isEntered_ = false;
};

}  // namespace orvo::gst
