#include "preprocess/preprocess_helper.h"

#include <algorithm>
#include <cmath>

#include "preprocess/stored_result.h"
#include "util/saturate.h"

namespace LibOrvoQMX::preprocess {
namespace {

constexpr double kEndTolerance = 60.0;       // seconds
constexpr double kShortestFragment = 0.001;  // seconds
constexpr double kLatest = 1e6;              // seconds; milliseconds of it are an int

// A damaged result may have any number, and those that are none have no order.
bool IsTime(double seconds) {
  return seconds >= -kLatest && seconds <= kLatest;
}

}  // namespace

PreprocessHelper::PreprocessHelper(const std::string& videoPath, int segmentLength)
    : m_segmentLength(segmentLength) {
  if (ReadCurrentResult(videoPath, m_result)) {
    Plan();
  }
}

PreprocessHelper PreprocessHelper::FromResult(const std::string& resultPath, int segmentLength) {
  PreprocessHelper helper;
  helper.m_segmentLength = segmentLength;
  if (helper.m_result.ReadFromFile(resultPath)) {
    helper.Plan();
  }
  return helper;
}

bool PreprocessHelper::SaveResult(const std::string& resultPath) const {
  return m_result.WriteToFile(resultPath);
}

void PreprocessHelper::Plan() {
  m_keyframeTimes = m_result.GetAllKeyframePtsTime();
  if (!IsLastKeyframeTimestampReasonable()) {
    return;
  }
  FetchAllFragment();
  m_isAvailable = m_isDone;
}

bool PreprocessHelper::IsAvailable() const {
  return m_isAvailable;
}

bool PreprocessHelper::WriteManifest(HLSHelper& manifest) const {
  if (!m_isAvailable) {
    return false;
  }
  manifest.WriteHeader(m_targetDuration);
  for (const HLSFragment& fragment : m_fragments) {
    manifest.WriteFragmentInfo(fragment);
  }
  manifest.WriteEnder();
  return true;
}

int PreprocessHelper::GetSeekTime(unsigned n) const {
  return m_isAvailable && n < m_fragments.size() ? SaturateToInt(m_fragments[n].startTime * 1000)
                                                 : -1;
}

bool PreprocessHelper::IsLastKeyframeTimestampReasonable() const {
  return m_result.end_time() > 0 && !m_keyframeTimes.empty() &&
         std::all_of(m_keyframeTimes.begin(), m_keyframeTimes.end(), IsTime) &&
         std::fabs(m_result.end_time() - m_keyframeTimes.back()) < kEndTolerance;
}

void PreprocessHelper::FetchAllFragment() {
  // Each fragment except the last uses at least one key frame. More fragments than key frames mean
  // that the times do not ascend; the loop might then never end.
  while (!m_isDone && m_fragments.size() <= m_keyframeTimes.size() && !m_keyframeTimes.empty()) {
    FetchNextFragment();
    m_fragments.push_back(m_current);
  }
}

void PreprocessHelper::FetchNextFragment() {
  const int id = m_current.fragmentId + 1;
  const double start = m_current.endTime;
  const double nominalEnd = (static_cast<double>(id) + 1) * m_segmentLength;
  // If key frames are further apart than the nominal length, the start may already be past the
  // nominal end.
  const double threshold = std::max(nominalEnd, start + kShortestFragment);
  const auto next = std::lower_bound(m_keyframeTimes.begin(), m_keyframeTimes.end(), threshold);
  m_isDone = next == m_keyframeTimes.end();
  UpdateCurrentFragment(start, m_isDone ? m_result.end_time() : *next, id);
}

int PreprocessHelper::UpdateCurrentFragment(double start, double end, int id) {
  m_current = {end - start, start, end, id};
  const int seconds = SaturateToInt(std::ceil(m_current.duration));
  m_targetDuration = std::max(m_targetDuration, seconds);
  return seconds;
}

}  // namespace LibOrvoQMX::preprocess
