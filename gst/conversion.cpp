#include "gst/conversion.h"

#include <glib-unix.h>
#include <gst/pbutils/pbutils.h>

#include <csignal>
#include <memory>
#include <optional>

#include "contract/passed_progress.h"
#include "gst/elements.h"
#include "gst/multiplexer.h"
#include "gst/output.h"
#include "gst/owned.h"
#include "gst/pipeline.h"
#include "platform/io.h"
#include "platform/log.h"
#include "transcoder/launch.h"
#include "transcoder/silence.h"

namespace orvo::gst {
namespace {

void ReportEnd() {
  const int progress = orvo::transcoder::PassedProgressFile();
  if (progress >= 0) {
    (void)orvo::WriteAll(progress, orvo::kProgressEnd);
  }
}

std::string ReasonOf(GstMessage* message) {
  GError* error = nullptr;
  gst_message_parse_error(message, &error, nullptr);
  const OwnedError reason(error);
  return GST_OBJECT_NAME(GST_MESSAGE_SRC(message)) + std::string(": ") + reason->message;
}

struct LoopRelease {
  void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
};

class Conversion {
 public:
  Conversion(const Request& request, const Patience& patience, Attendant& attendant)
      : request_(request),
        patience_(patience),
        attendant_(attendant),
        output_(request.output),
        silence_(patience.stall),
        multiplexer_(request),
        loop_(g_main_loop_new(nullptr, FALSE)) {
    interrupt_.Set(g_unix_signal_add(SIGINT, OnSignal, this));
    terminate_.Set(g_unix_signal_add(SIGTERM, OnSignal, this));
  }

  Result Run() {
    Prepare();
    if (!result_) {
      Begin();
    }
    if (!result_) {
      g_main_loop_run(loop_.get());
    }
    // Before the output ends, because its reader looks at the report then.
    if (result_->hasSucceeded) {
      ReportEnd();
    }
    return *result_;
  }

 private:
  static gboolean OnSignal(gpointer self) {
    static_cast<Conversion*>(self)->Stop();
    return G_SOURCE_CONTINUE;
  }
  static gboolean OnStopped(gpointer self) {
    static_cast<Conversion*>(self)->Finish("");
    return G_SOURCE_CONTINUE;
  }
  static gboolean OnSilence(gpointer self) {
    static_cast<Conversion*>(self)->Listen();
    return G_SOURCE_CONTINUE;
  }
  static gboolean OnWritable(gint fd, GIOCondition condition, gpointer self);
  static gboolean OnMessage(GstBus* bus, GstMessage* message, gpointer self);
  static gboolean OnOutputMessage(GstBus* bus, GstMessage* message, gpointer self);

  void Watch(Source& source, GstElement* pipeline, GstBusFunc handle) {
    const OwnedObject<GstBus> bus(gst_element_get_bus(pipeline));
    source.Set(gst_bus_add_watch(bus.get(), handle, this));
  }

  void Prepare() {
    FinishIf(multiplexer_.Prepare());
    if (!result_) {
      Watch(outputMessages_, multiplexer_.Element(), OnOutputMessage);
    }
  }

  void Begin() {
    pipeline_ = std::make_unique<Pipeline>(request_, elements_, multiplexer_);
    FinishIf(pipeline_->Start());
    Watch(messages_, pipeline_->Element(), OnMessage);
    if (output_.IsEmpty()) {
      AwaitOutput();
    }
  }

  // With what the multiplexer does not have yet, and with other elements.
  void BeginAnew() {
    messages_.Set(0);
    Pipeline::Abandon(std::move(pipeline_));
    Begin();
  }

  void Stop() {
    if (stop_.IsSet()) {
      return;
    }
    stop_.Set(g_timeout_add(patience_.stop, OnStopped, this));
    if (!pipeline_->End()) {
      Finish("");
    }
  }

  void Finish(const std::string& error) {
    if (!result_) {
      result_ = Result{.hasSucceeded = error.empty(), .error = error};
    }
    g_main_loop_quit(loop_.get());
  }

  void FinishIf(const std::string& error) {
    if (!error.empty()) {
      Finish(error);
    }
  }

  void AwaitOutput() {
    silence_.Break();
    stall_.Set(g_timeout_add(transcoder::Silence::kTick, OnSilence, this));
  }
  void AwaitReader() {
    stall_.Set(0);
    if (!writable_.IsSet()) {
      constexpr auto kWritable = static_cast<GIOCondition>(G_IO_OUT | G_IO_ERR);
      writable_.Set(g_unix_fd_add(output_.Descriptor(), kWritable, OnWritable, this));
    }
  }

  void Enter(const std::string& error);
  bool IsOnHardware() const;
  void Listen();
  void GiveUp();
  void Pump();
  void Write();
  void Handle(GstMessage* message);
  void HandleOutput(GstMessage* message);
  void HandleOwn(const char* name);
  void HandleError(GstMessage* message);
  bool CanReplace(GstElementFactory* suspect);
  bool Replace(GstElementFactory* suspect, const char* reason);
  GstElementFactory* Suspect(GstMessage* message) const;
  void LogElements() const;

  const Request& request_;
  const Patience& patience_;
  Attendant& attendant_;
  Elements elements_;
  Output output_;
  transcoder::Silence silence_;
  Multiplexer multiplexer_;
  std::unique_ptr<Pipeline> pipeline_;
  std::unique_ptr<GMainLoop, LoopRelease> loop_;
  std::optional<Result> result_;
  bool hasEnded_ = false;  // nothing comes after what has been pulled
  bool hasSeat_ = false;   // among the transcoders in software
  Source interrupt_;
  Source terminate_;
  Source messages_;
  Source outputMessages_;
  Source writable_;
  Source stall_;
  Source stop_;
};

bool Conversion::IsOnHardware() const {
  GstElementFactory* const encoder = pipeline_->PictureEncoder();
  return encoder != nullptr && IsHardware(encoder);
}

// After a step that may have connected the encoders. The register has this process as one on
// hardware.
void Conversion::Enter(const std::string& error) {
  FinishIf(error);
  if (pipeline_->PictureEncoder() == nullptr || IsOnHardware() || hasSeat_) {
    return;
  }
  hasSeat_ = attendant_.TakeSoftwareSeat();
  if (!hasSeat_) {
    Finish("no more transcoders in software may run");
    result_->lacksSeat = true;
  }
}

void Conversion::Listen() {
  if (silence_.Tick()) {
    GiveUp();
  }
}

void Conversion::GiveUp() {
  constexpr char kReason[] = "the pipeline stands still";
  if (!IsOnHardware()) {
    Finish(kReason);
  } else if (!Replace(pipeline_->PictureEncoder(), kReason)) {
    attendant_.ReportFailure();
    Finish(kReason);
  }
}

// Moves on from a piece that has been written.
void Conversion::Pump() {
  if (!output_.IsEmpty()) {
    return;
  }
  OwnedMini<GstSample> sample = multiplexer_.Pull();
  if (sample) {
    output_.Take(std::move(sample));
    AwaitReader();
    return;
  }
  writable_.Set(0);
  if (hasEnded_) {
    Finish(output_.HasBegun() || stop_.IsSet() ? "" : "nothing in the film could be converted");
  } else {
    AwaitOutput();
  }
}

void Conversion::Write() {
  if (!output_.HasBegun()) {
    LogElements();
  }
  output_.Write();
  if (output_.HasFailed()) {
    Finish("cannot write the output");
  } else {
    Pump();
  }
}

gboolean Conversion::OnWritable(gint /*fd*/, GIOCondition /*condition*/, gpointer self) {
  auto* const conversion = static_cast<Conversion*>(self);
  conversion->Write();
  return G_SOURCE_CONTINUE;
}

gboolean Conversion::OnMessage(GstBus* /*bus*/, GstMessage* message, gpointer self) {
  static_cast<Conversion*>(self)->Handle(message);
  return G_SOURCE_CONTINUE;
}

void Conversion::Handle(GstMessage* message) {
  if (result_) {
    return;
  }
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_APPLICATION:
      HandleOwn(gst_structure_get_name(gst_message_get_structure(message)));
      break;
    case GST_MESSAGE_ELEMENT:
      if (gst_is_missing_plugin_message(message) != FALSE) {
        const OwnedText caps(gst_missing_plugin_message_get_installer_detail(message));
        Enter(pipeline_->GoOnWithout(caps ? caps.get() : ""));
      }
      break;
    case GST_MESSAGE_ERROR:
      HandleError(message);
      break;
    default:
      break;
  }
}

gboolean Conversion::OnOutputMessage(GstBus* /*bus*/, GstMessage* message, gpointer self) {
  static_cast<Conversion*>(self)->HandleOutput(message);
  return G_SOURCE_CONTINUE;
}

void Conversion::HandleOutput(GstMessage* message) {
  if (result_) {
    return;
  }
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_APPLICATION:
      Pump();
      break;
    case GST_MESSAGE_ERROR:
      Finish(ReasonOf(message));
      break;
    case GST_MESSAGE_EOS:
      hasEnded_ = true;
      Pump();
      break;
    default:
      break;
  }
}

void Conversion::HandleOwn(const char* name) {
  if (const auto track = Pipeline::EndedTrack(name); track) {
    multiplexer_.End(*track);
  } else {
    Enter(pipeline_->EnterWhenHeld());
  }
}

// The element that failed, or the encoder that does not take what it is given.
GstElementFactory* Conversion::Suspect(GstMessage* message) const {
  const GstStructure* details = nullptr;
  gst_message_parse_error_details(message, &details);
  gint flow = GST_FLOW_OK;
  if (details != nullptr && gst_structure_get_int(details, "flow-return", &flow) != FALSE &&
      flow == GST_FLOW_NOT_NEGOTIATED) {
    return pipeline_->PictureEncoder();
  }
  GstObject* const source = GST_MESSAGE_SRC(message);
  return GST_IS_ELEMENT(source) ? gst_element_get_factory(GST_ELEMENT(source)) : nullptr;
}

// Before the first byte, every element that fails; afterwards, hardware in a stream on the film's
// clock. Of segments, the one in work is made anew by another run.
bool Conversion::CanReplace(GstElementFactory* suspect) {
  const bool hasBegun = output_.HasBegun() || !output_.IsEmpty();
  return !stop_.IsSet() && suspect != nullptr &&
         (!hasBegun || (request_.keepsFilmClock && IsHardware(suspect))) &&
         elements_.Exclude(suspect);
}

// Goes on without what has failed, if that is possible.
bool Conversion::Replace(GstElementFactory* suspect, const char* reason) {
  if (!CanReplace(suspect)) {
    return false;
  }
  orvo::Log(LOG_WARNING, __FILE__, __LINE__, "%s failed, trying the next one: %s",
            GST_OBJECT_NAME(suspect), reason);
  if (output_.HasBegun()) {
    attendant_.ReportFailure();
  }
  BeginAnew();
  return true;
}

void Conversion::HandleError(GstMessage* message) {
  GstElementFactory* const suspect = Suspect(message);
  const std::string reason = ReasonOf(message);
  if (Replace(suspect, reason.c_str())) {
    return;
  }
  if (suspect != nullptr && IsHardware(suspect)) {
    attendant_.ReportFailure();
  }
  Finish(reason);
}

void Conversion::LogElements() const {
  orvo::Log(LOG_NOTICE, __FILE__, __LINE__, "converting %s with %s", request_.film.c_str(),
            pipeline_->Names().c_str());
}

}  // namespace

Result Convert(const Request& request, const Patience& patience, Attendant& attendant) {
  // Threads of pipelines that were left behind or hang may still use it.
  return (new Conversion(request, patience, attendant))->Run();
}

}  // namespace orvo::gst
