// Sound on its way through a decoder, filters and an encoder.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "transcoder/av_functions.h"
#include "transcoder/film_copy.h"
#include "transcoder/sound_graph.h"

namespace orvo::transcoder {

// Takes the packets of one track and gives encoded ones. Times count from where the film was
// entered.
class CopySound {
 public:
  // An encoded packet, in ticks of the encoder's clock. It may be taken out.
  using Sink = std::function<void(AVPacket& packet)>;

  // Null when a library, the decoder or the encoder is missing. `track` outlives the object.
  static std::unique_ptr<CopySound> Open(const SoundRecipe& recipe, const AVStream& track,
                                         Sink sink);
  ~CopySound();
  CopySound(const CopySound&) = delete;
  CopySound& operator=(const CopySound&) = delete;

  const AVCodecContext& Encoder() const { return *encoder_; }

  // A packet of the track, in its ticks. What cannot be decoded is left out.
  void Take(const AVPacket& packet) { Decode(&packet); }

  // The track has ended.
  void Finish();

  // Nothing more comes: the filters do not fit the sound.
  bool HasFailed() const { return hasFailed_; }

 private:
  CopySound(const AvFunctions& av, const SoundRecipe& recipe, const AVStream& track, Sink sink);
  bool OpenDecoder();
  bool OpenEncoder();
  void Decode(const AVPacket* packet);
  void CountSamples();
  void Filter();
  void OpenGraph();
  std::string Chain() const;
  void Drain();
  void Encode(const AVFrame* frame);

  const AvFunctions& av_;
  const SoundRecipe recipe_;
  const AVStream& track_;
  Sink sink_;
  AVCodecContext* decoder_ = nullptr;
  AVCodecContext* encoder_ = nullptr;
  std::unique_ptr<SoundGraph> graph_;
  AVFrame* decoded_;
  AVFrame* filtered_;
  AVPacket* encoded_;
  bool hasFailed_ = false;
  int64_t nextSample_ = AV_NOPTS_VALUE;
  int64_t lastTime_ = AV_NOPTS_VALUE;  // what av_rescale_delta() keeps
};

}  // namespace orvo::transcoder
