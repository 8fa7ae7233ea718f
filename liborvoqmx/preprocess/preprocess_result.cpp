#include "preprocess/preprocess_result.h"

#include <cstdint>
#include <fstream>
#include <utility>

extern "C" {
#include <libavutil/frame.h>
}

#include "platform/media_file.h"
#include "platform/plat.h"
#include "preprocess_result.pb.h"

namespace LibOrvoQMX::preprocess {
namespace {

constexpr char kResultName[] = "ORVOVIDEO_PREPROCESS_V1";
// Enough for millions of key frames. A larger file is not a result, and must not fill the memory.
constexpr off_t kLargestFile = 64 << 20;

}  // namespace

std::string PreprocessUtil::GetPreprocessResultPath(const std::string& videoPath) {
  std::string directory;
  if (videoPath.empty() || !libmrv::critical::orvoindex::GetEADirPath(videoPath, directory)) {
    return "";
  }
  return directory + "/" + kResultName;
}

PreprocessResultWrapper::PreprocessResultWrapper()
    : m_message(std::make_unique<proto::PreprocessResult>()) {}

PreprocessResultWrapper::PreprocessResultWrapper(const PreprocessResultWrapper& other)
    : m_message(std::make_unique<proto::PreprocessResult>(*other.m_message)) {}

PreprocessResultWrapper::PreprocessResultWrapper(PreprocessResultWrapper&& other) noexcept =
    default;

PreprocessResultWrapper& PreprocessResultWrapper::operator=(const PreprocessResultWrapper& other) {
  return *this = PreprocessResultWrapper(other);
}

PreprocessResultWrapper& PreprocessResultWrapper::operator=(
    PreprocessResultWrapper&& other) noexcept = default;

PreprocessResultWrapper::~PreprocessResultWrapper() = default;

void PreprocessResultWrapper::PushPtsTime(double seconds) {
  m_message->add_gop()->set_keyframe_pts_time(seconds);
}

void PreprocessResultWrapper::ProcessFrame(const AVFrame& frame, const AVRational& timeBase) {
  PushPtsTime(static_cast<double>(frame.pts) *
              (static_cast<double>(timeBase.num) / static_cast<double>(timeBase.den)));
}

void PreprocessResultWrapper::set_end_time(double seconds) {
  m_message->set_end_time(seconds);
}

double PreprocessResultWrapper::end_time() const {
  return m_message->end_time();
}

bool PreprocessResultWrapper::WriteToFile(const std::string& path) const {
  std::ofstream file(path, std::ios::out | std::ios::trunc | std::ios::binary);
  return m_message->SerializeToOstream(&file) && file.flush().good();
}

bool PreprocessResultWrapper::ReadFromFile(const std::string& path) {
  const orvo::MediaFile file = orvo::MediaFile::Open(path);
  return file.IsOpen() && file.Status().st_size <= kLargestFile &&
         m_message->ParseFromFileDescriptor(file.Get());
}

std::vector<double> PreprocessResultWrapper::GetAllKeyframePtsTime() const {
  std::vector<double> times;
  times.reserve(static_cast<size_t>(m_message->gop_size()));
  for (const proto::GroupOfPicture& group : m_message->gop()) {
    times.push_back(group.keyframe_pts_time() - m_message->gop(0).keyframe_pts_time());
  }
  return times;
}

}  // namespace LibOrvoQMX::preprocess
