// The pipeline: a local file, decoders for one picture and one sound track, encoders. It feeds the
// multiplexer.
#pragma once

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "gst/arguments.h"
#include "gst/elements.h"
#include "gst/film_entry.h"
#include "gst/multiplexer.h"
#include "gst/owned.h"

namespace orvo::gst {

class Pipeline {
 public:
  // All of these outlive the pipeline. It begins with what the multiplexer does not have yet.
  Pipeline(const Request& request, const Elements& elements, Multiplexer& multiplexer);
  ~Pipeline() = default;
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  // These return what is wrong, or an empty text.
  std::string Start();
  // After each message FilmEntry::kHeld: once every stream is held back, connects the encoders and
  // enters the film where the request says.
  std::string EnterWhenHeld();
  // After a message that says that the machine lacks a decoder.
  std::string GoOnWithout(const std::string& caps);

  // The track that an application message says has ended; nothing if it says something else.
  static std::optional<Track> EndedTrack(const char* message);

  // Ends the output as if the film ended here. False when there is no output that could end.
  bool End();

  // Stops the pipeline, which may take as long as its elements like. Neither waits for that nor
  // frees what they use.
  static void Abandon(std::unique_ptr<Pipeline> pipeline);

  GstElement* Element() const { return pipeline_.get(); }

  // The picture encoder's factory, borrowed; nothing before the film is entered.
  GstElementFactory* PictureEncoder() const;

  // The names of the decoders and encoders at work.
  std::string Names() const;

 private:
  static gint OnStream(GstElement* decoder, GstStreamCollection* all, GstStream* stream,
                       gpointer self);
  static void OnPad(GstElement* decoder, GstPad* pad, gpointer self);
  static GstBusSyncReply OnMessage(GstBus* bus, GstMessage* message, gpointer self);
  static void OnEnd(GstAppSink* sink, gpointer outlet);
  static GstFlowReturn OnSample(GstAppSink* sink, gpointer outlet);

  void CountTracks(GstStreamCollection* all);
  bool IsEverythingHeld() const;
  std::string Enter();
  std::string ConnectPictures();
  std::string ConnectSound();
  void FilterPictures(GstElement* branch);
  std::string Connect(Track track, const FilmEntry& entry, GstElement* branch);
  OwnedObject<GstElement> MakeOutlet(Track track);
  bool Seek(GstClockTime origin);

  const Request& request_;
  const Elements& elements_;
  Multiplexer& multiplexer_;
  const int number_;                    // at the multiplexer
  const GstClockTime skippedPictures_;  // which the multiplexer has, from the request's start on
  const GstClockTime skippedSound_;
  OwnedObject<GstElement> pipeline_;
  OwnedObject<GstElement> encoder_;
  std::atomic<int> pictureTracks_ = 0;
  std::atomic<int> soundTracks_ = 0;
  mutable std::mutex mutex_;  // for the entries' existence
  std::unique_ptr<FilmEntry> pictures_;
  std::unique_ptr<FilmEntry> sound_;
  bool lacksSoundDecoder_ = false;
  bool isEntered_ = false;
};

}  // namespace orvo::gst
