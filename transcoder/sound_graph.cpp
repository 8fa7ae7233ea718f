#include "transcoder/sound_graph.h"

#include <array>

#include "liborvoqmx/util/lazy_library.h"
#include "platform/log.h"

namespace orvo::transcoder {

#define ORVO_FILTER_FUNCTIONS(X)  \
  X(av_buffersink_get_frame)      \
  X(av_buffersink_set_frame_size) \
  X(av_buffersrc_add_frame_flags) \
  X(avfilter_graph_alloc)         \
  X(avfilter_graph_config)        \
  X(avfilter_graph_free)          \
  X(avfilter_graph_get_filter)    \
  X(avfilter_graph_parse_ptr)     \
  X(avfilter_inout_free)

struct FilterFunctions {
#define ORVO_DECLARE(name) decltype(&::name) name = nullptr;  // NOLINT(bugprone-macro-parentheses)
  ORVO_FILTER_FUNCTIONS(ORVO_DECLARE)
#undef ORVO_DECLARE
};

namespace {

// Filters of a chain are called by their type and what stands behind the "@".
constexpr char kSource[] = "abuffer@in";
constexpr char kSink[] = "abuffersink@out";

constexpr char kLibrary[] = "libavfilter.so." AV_STRINGIFY(LIBAVFILTER_VERSION_MAJOR);

bool Load(FilterFunctions& functions) {
  const LazyLibrary library(kLibrary);
  bool found = true;
#define ORVO_FIND(name) found = library.Find(#name, functions.name) && found;
  ORVO_FILTER_FUNCTIONS(ORVO_FIND)
#undef ORVO_FIND
  return found;
}

const FilterFunctions* Filters() {
  static FilterFunctions functions;
  static const bool loaded = Load(functions);
  return loaded ? &functions : nullptr;
}

std::string LayoutName(const AvFunctions& av, const AVChannelLayout& layout) {
  std::array<char, 256> name{};
  const bool isNamed = layout.order != AV_CHANNEL_ORDER_UNSPEC &&
                       av.av_channel_layout_describe(&layout, name.data(), name.size()) > 0;
  return isNamed ? std::string(":channel_layout=") + name.data()
                 : ":channels=" + std::to_string(layout.nb_channels);
}

std::string SourceOptions(const AvFunctions& av, const AVFrame& frame) {
  const char* const format = av.av_get_sample_fmt_name(static_cast<AVSampleFormat>(frame.format));
  const std::string rate = std::to_string(frame.sample_rate);
  return "time_base=1/" + rate + ":sample_rate=" + rate +
         ":sample_fmt=" + (format != nullptr ? format : "") + LayoutName(av, frame.ch_layout);
}

}  // namespace

bool SoundGraph::IsAvailable() {
  return AvFunctions::Get() != nullptr && Filters() != nullptr;
}

std::unique_ptr<SoundGraph> SoundGraph::Open(const AVFrame& frame, const std::string& chain,
                                             int frameSize) {
  std::unique_ptr<SoundGraph> graph(new SoundGraph(*AvFunctions::Get(), *Filters()));
  return graph->Connect(frame, chain, frameSize) ? std::move(graph) : nullptr;
}

SoundGraph::SoundGraph(const AvFunctions& av, const FilterFunctions& filters)
    : av_(av), filters_(filters), graph_(filters.avfilter_graph_alloc()) {}

SoundGraph::~SoundGraph() {
  filters_.avfilter_graph_free(&graph_);
  av_.av_channel_layout_uninit(&layout_);
}

// A thread for each filter would only wait.
bool SoundGraph::Connect(const AVFrame& frame, const std::string& chain, int frameSize) {
  rate_ = frame.sample_rate;
  format_ = frame.format;
  if (graph_ == nullptr || av_.av_channel_layout_copy(&layout_, &frame.ch_layout) < 0) {
    return false;
  }
  graph_->nb_threads = 1;
  AVFilterInOut* outputs = nullptr;
  AVFilterInOut* inputs = nullptr;
  const std::string whole =
      std::string(kSource) + "=" + SourceOptions(av_, frame) + "," + chain + "," + kSink;
  const bool isReady =
      filters_.avfilter_graph_parse_ptr(graph_, whole.c_str(), &inputs, &outputs, nullptr) >= 0 &&
      filters_.avfilter_graph_config(graph_, nullptr) >= 0;
  filters_.avfilter_inout_free(&inputs);
  filters_.avfilter_inout_free(&outputs);
  if (!isReady) {
    return false;
  }
  source_ = filters_.avfilter_graph_get_filter(graph_, kSource);
  sink_ = filters_.avfilter_graph_get_filter(graph_, kSink);
  if (source_ == nullptr || sink_ == nullptr) {
    return false;
  }
  filters_.av_buffersink_set_frame_size(sink_, static_cast<unsigned>(frameSize));
  return true;
}

bool SoundGraph::Fits(const AVFrame& frame) const {
  return frame.sample_rate == rate_ && frame.format == format_ &&
         av_.av_channel_layout_compare(&frame.ch_layout, &layout_) == 0;
}

bool SoundGraph::Put(AVFrame* frame) {
  return filters_.av_buffersrc_add_frame_flags(source_, frame, AV_BUFFERSRC_FLAG_PUSH) >= 0;
}

bool SoundGraph::Get(AVFrame& frame) {
  return filters_.av_buffersink_get_frame(sink_, &frame) >= 0;
}

}  // namespace orvo::transcoder
