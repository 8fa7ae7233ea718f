#include "picture_filter.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include <algorithm>

namespace orvo::analyze {
namespace {

// Filters of a chain are called by their type and what stands behind the "@".
constexpr char kSource[] = "buffer@in";
constexpr char kSink[] = "buffersink@out";

struct FreeGraph {
  void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};
using Graph = std::unique_ptr<AVFilterGraph, FreeGraph>;

// A picture without a shape of its pixels has square ones.
std::string SourceOptions(const AVFrame& picture) {
  const AVRational shape = picture.sample_aspect_ratio;
  return "time_base=1/1:width=" + std::to_string(picture.width) +
         ":height=" + std::to_string(picture.height) +
         ":pix_fmt=" + std::to_string(picture.format) +
         ":sar=" + std::to_string(std::max(shape.num, 0)) + "/" +
         std::to_string(std::max(shape.den, 1));
}

// A thread for each filter would only wait.
Graph Open(const AVFrame& picture, const std::string& chain) {
  Graph graph(avfilter_graph_alloc());
  if (graph == nullptr) {
    return nullptr;
  }
  graph->nb_threads = 1;
  AVFilterInOut* outputs = nullptr;
  AVFilterInOut* inputs = nullptr;
  const std::string whole =
      std::string(kSource) + "=" + SourceOptions(picture) + "," + chain + "," + kSink;
  const bool isReady =
      avfilter_graph_parse_ptr(graph.get(), whole.c_str(), &inputs, &outputs, nullptr) >= 0 &&
      avfilter_graph_config(graph.get(), nullptr) >= 0;
  avfilter_inout_free(&inputs);
  avfilter_inout_free(&outputs);
  return isReady ? std::move(graph) : nullptr;
}

}  // namespace

Frame Filtered(const AVFrame& picture, const std::string& chain) {
  const Graph graph = Open(picture, chain);
  Frame input(av_frame_clone(&picture));
  Frame output(av_frame_alloc());
  if (graph == nullptr || input == nullptr || output == nullptr) {
    return nullptr;
  }
  AVFilterContext* const source = avfilter_graph_get_filter(graph.get(), kSource);
  AVFilterContext* const sink = avfilter_graph_get_filter(graph.get(), kSink);
  const bool isMade = source != nullptr && sink != nullptr &&
                      av_buffersrc_add_frame(source, input.get()) >= 0 &&
                      av_buffersrc_add_frame(source, nullptr) >= 0 &&
                      av_buffersink_get_frame(sink, output.get()) >= 0;
  return isMade ? std::move(output) : nullptr;
}

}  // namespace orvo::analyze
