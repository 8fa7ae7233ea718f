// The GStreamer wrapper: converts one film on the machine's video engines where it has some.
#include <fcntl.h>
#include <gst/gst.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "gst/arguments.h"
#include "gst/attendant.h"
#include "gst/conversion.h"
#include "platform/confinement.h"
#include "platform/log.h"
#include "platform/media_file.h"
#include "platform/plat.h"
#include "transcoder/engines.h"
#include "transcoder/given_film.h"
#include "transcoder/launch.h"
#include "transcoder/software_seat.h"

namespace {

using namespace orvo::gst;

constexpr char kCacheFolder[] = "/var/packages/Mirevo/cache";
constexpr char kRegistryName[] = "/gstreamer.bin";

int Fail(int code, const std::string& error) {
  ORVO_LOG("%s", error.c_str());
  fprintf(stderr, "orvo-gst: %s\n", error.c_str());
  return code;
}

// What is wrong with the film or the output before anything is opened by GStreamer: anything but a
// regular file could keep it waiting.
std::string Unusable(const Request& request, const orvo::MediaFile& film) {
  if (!film.IsOpen()) {
    return request.film +
           (errno == EINVAL ? " is not a file" : std::string(": ") + strerror(errno));
  }
  return fcntl(request.output, F_GETFD) < 0
             ? "descriptor " + std::to_string(request.output) + " is not open"
             : "";
}

// Engines that are known not to encode are left alone.
void ChooseEncoders(Request& request) {
  const auto record = orvo::transcoder::EngineRecord::Load();
  if (request.encoders == Encoders::kAny && record.IsKnown() &&
      !record.Proved(orvo::transcoder::kWrapper)) {
    request.encoders = Encoders::kSoftware;
  }
}

// GStreamer keeps a list of its plugins. Without a home it would make it anew at each start.
void PrepareGstreamer() {
  const std::string folder = orvo::SystemPath(kCacheFolder);
  if (access(folder.c_str(), W_OK) == 0) {
    setenv("GST_REGISTRY", (folder + kRegistryName).c_str(), 0);
  }
  gst_init(nullptr, nullptr);
}

}  // namespace

int main(int argc, char* argv[]) {
  Reading reading = ReadArguments({argv + 1, argv + argc});
  const auto given = orvo::transcoder::GivenFilm::Find(reading.error);
  if (!reading.error.empty()) {
    return Fail(orvo::transcoder::kExitUsage, reading.error);
  }
  orvo::transcoder::PrepareProcess();
  const auto file = orvo::MediaFile::Open(given ? given->address : reading.request.film);
  const std::string error = Unusable(reading.request, file);
  if (!error.empty()) {
    return Fail(EXIT_FAILURE, error);
  }
  reading.request.film = file.Address();
  ChooseEncoders(reading.request);
  Attendant attendant = Attendant::Start();
  PrepareGstreamer();
  // Only now, because GStreamer may start a program that looks at its plugins. Decoders come later.
  orvo::Confinement confinement(orvo::Job::kTranscoder,
                                {.files = {file.Get()}, .hardware = true, .socketPairs = true});
  if (const int refused = confinement.Enter(); refused != 0) {
    return Fail(EXIT_FAILURE, std::string("cannot be confined: ") + strerror(refused));
  }
  const Result result = Convert(reading.request, {}, attendant);
  const int failure = result.lacksSeat ? orvo::transcoder::kExitNoSeat : EXIT_FAILURE;
  const int code = result.hasSucceeded ? EXIT_SUCCESS : Fail(failure, result.error);
  _exit(code);
}
