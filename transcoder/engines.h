// The video engines of this machine, and which of them have encoded.
//
// A device node says little: its driver may be missing, or its encoder may refuse every picture. So
// an engine counts only after a proof (engine_proof.h). The proofs are kept in one file until the
// machine is another: after a reboot, with another FFmpeg, driver or node.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvo::transcoder {

// The GStreamer wrapper, which chooses among the engines by itself: its name where an encoder of
// FFmpeg has its own.
inline constexpr char kWrapper[] = "orvo-gst";

// The encoder whose profiles count as hardware on more than one platform.
inline constexpr char kVaapiEncoder[] = "h264_vaapi";

struct Engine {
  std::string encoder{};  // FFmpeg's name, or the wrapper's
  std::string node{};     // the device; "" if there is none
  int lines = 0;          // of the tallest pictures that it has encoded; 0 if it is not proved
  double speed = 0;       // seconds of film a second, at that size; 0 if that is not known
  std::string reason{};   // why it is not proved, or not for taller pictures; a sentence, or ""
};

class EngineRecord {
 public:
  // What is stored for this machine as it is.
  static EngineRecord Load();

  // Have the engines been proved?
  bool IsKnown() const { return isKnown_; }

  // All engines that were examined, proved or not.
  const std::vector<Engine>& All() const { return engines_; }

  // The engine of this encoder if it has encoded pictures of so many lines; nothing otherwise.
  std::optional<Engine> Proved(std::string_view encoder, int lines = 1) const;

  // The engine for profiles of this encoder. Those of VA-API are served by NVENC, Quick Sync or
  // V4L2 where it has encoded and VA-API has not. Nothing if no such engine has encoded.
  std::optional<Engine> Serving(std::string_view encoder) const;

  // Adds an engine, or replaces what is known of it.
  void Set(const Engine& engine);

  // Writes the file for this machine as it is. Returns false on failure.
  bool Save() const;

 private:
  bool isKnown_ = false;
  std::vector<Engine> engines_;
};

// Is this an encoder of a video engine, or the wrapper, which count only with a proof?
bool IsEngine(std::string_view encoder);

// The command line with the engine that serves it, where that is another one than it names. A
// command line that has more to do with VA-API than its encoder stays as it is.
std::vector<std::string> WithServingEngine(std::vector<std::string> arguments,
                                           const EngineRecord& record);

// The devices of an encoder on this machine, by name. "" stands for one that FFmpeg finds itself.
std::vector<std::string> NodesOf(std::string_view encoder);

}  // namespace orvo::transcoder
