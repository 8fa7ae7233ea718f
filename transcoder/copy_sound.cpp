#include "transcoder/copy_sound.h"

#include <string>
#include <utility>

namespace orvo::transcoder {
namespace {

constexpr int kStereo = 2;
constexpr AVSampleFormat kFormat = AV_SAMPLE_FMT_FLTP;

}  // namespace

std::unique_ptr<CopySound> CopySound::Open(const SoundRecipe& recipe, const AVStream& track,
                                           Sink sink) {
  if (!SoundGraph::IsAvailable()) {
    return nullptr;
  }
  std::unique_ptr<CopySound> sound(
      new CopySound(*AvFunctions::Get(), recipe, track, std::move(sink)));
  return sound->OpenDecoder() && sound->OpenEncoder() ? std::move(sound) : nullptr;
}

CopySound::CopySound(const AvFunctions& av, const SoundRecipe& recipe, const AVStream& track,
                     Sink sink)
    : av_(av),
      recipe_(recipe),
      track_(track),
      sink_(std::move(sink)),
      decoded_(av.av_frame_alloc()),
      filtered_(av.av_frame_alloc()),
      encoded_(av.av_packet_alloc()) {}

CopySound::~CopySound() {
  graph_.reset();
  av_.av_packet_free(&encoded_);
  av_.av_frame_free(&filtered_);
  av_.av_frame_free(&decoded_);
  av_.avcodec_free_context(&encoder_);
  av_.avcodec_free_context(&decoder_);
}

bool CopySound::OpenDecoder() {
  const AVCodec* const codec = av_.avcodec_find_decoder(track_.codecpar->codec_id);
  decoder_ = codec != nullptr ? av_.avcodec_alloc_context3(codec) : nullptr;
  if (decoder_ == nullptr || av_.avcodec_parameters_to_context(decoder_, track_.codecpar) < 0) {
    return false;
  }
  decoder_->pkt_timebase = track_.time_base;
  decoder_->thread_count = 1;
  return av_.avcodec_open2(decoder_, codec, nullptr) >= 0;
}

bool CopySound::OpenEncoder() {
  const AVCodec* const codec = av_.avcodec_find_encoder_by_name(recipe_.encoder.c_str());
  encoder_ = codec != nullptr ? av_.avcodec_alloc_context3(codec) : nullptr;
  if (encoder_ == nullptr) {
    return false;
  }
  encoder_->sample_fmt = kFormat;
  encoder_->sample_rate = static_cast<int>(recipe_.rate);
  encoder_->time_base = {1, encoder_->sample_rate};
  encoder_->bit_rate = recipe_.bitRate > 0 ? recipe_.bitRate : encoder_->bit_rate;
  av_.av_channel_layout_default(&encoder_->ch_layout, kStereo);
  AVDictionary* options = nullptr;
  if (!recipe_.coder.empty()) {
    av_.av_dict_set(&options, "aac_coder", recipe_.coder.c_str(), 0);
  }
  const bool isOpen = av_.avcodec_open2(encoder_, codec, &options) >= 0;
  av_.av_dict_free(&options);
  return isOpen;
}

void CopySound::Finish() {
  Decode(nullptr);
  if (graph_ != nullptr && graph_->Put(nullptr)) {
    Drain();
  }
  Encode(nullptr);
}

void CopySound::Decode(const AVPacket* packet) {
  if (av_.avcodec_send_packet(decoder_, packet) < 0) {
    return;
  }
  while (av_.avcodec_receive_frame(decoder_, decoded_) >= 0) {
    CountSamples();
    Filter();
    av_.av_frame_unref(decoded_);
  }
}

// Films count in coarser ticks than samples; what is rounded must not look like a gap.
void CopySound::CountSamples() {
  const AVRational clock = {1, decoded_->sample_rate};
  if (decoded_->pts != AV_NOPTS_VALUE && decoded_->sample_rate > 0) {
    decoded_->pts = av_.av_rescale_delta(track_.time_base, decoded_->pts, clock,
                                         decoded_->nb_samples, &lastTime_, clock);
  }
}

// Sound that changes gets a graph of its own from there on.
void CopySound::Filter() {
  if (graph_ == nullptr || !graph_->Fits(*decoded_)) {
    OpenGraph();
  }
  hasFailed_ = hasFailed_ || graph_ == nullptr;
  if (graph_ != nullptr && graph_->Put(decoded_)) {
    Drain();
  }
}

void CopySound::OpenGraph() {
  if (graph_ != nullptr && graph_->Put(nullptr)) {
    Drain();
  }
  graph_ = SoundGraph::Open(*decoded_, Chain(), encoder_->frame_size);
}

std::string CopySound::Chain() const {
  const std::string rate = std::to_string(recipe_.rate);
  std::string chain = recipe_.filters + (recipe_.filters.empty() ? "" : ",");
  if (recipe_.first) {
    const int64_t first = nextSample_ == AV_NOPTS_VALUE ? *recipe_.first : nextSample_;
    chain += "aresample=" + rate + ":async=1:first_pts=" + std::to_string(first) + ",";
  }
  return chain + "aformat=sample_fmts=fltp:channel_layouts=stereo:sample_rates=" + rate;
}

void CopySound::Drain() {
  while (graph_->Get(*filtered_)) {
    nextSample_ = filtered_->pts + filtered_->nb_samples;
    Encode(filtered_);
    av_.av_frame_unref(filtered_);
  }
}

void CopySound::Encode(const AVFrame* frame) {
  if (av_.avcodec_send_frame(encoder_, frame) < 0) {
    return;
  }
  while (av_.avcodec_receive_packet(encoder_, encoded_) >= 0) {
    sink_(*encoded_);
    av_.av_packet_unref(encoded_);
  }
}

}  // namespace orvo::transcoder
