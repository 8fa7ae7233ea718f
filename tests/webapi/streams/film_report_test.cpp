#include "webapi/streams/film_report.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "contract/passed_progress.h"
#include "platform/io.h"

namespace {

// As a transcoder, which finds the file in its environment.
void Report(const std::string& text) {
  const char* const descriptor = getenv(orvo::kProgressVariable);
  ASSERT_NE(descriptor, nullptr);
  ASSERT_TRUE(orvo::WriteAll(std::stoi(descriptor), text));
}

TEST(FilmReport, TellsAFilmThatWasMadeToItsEnd) {
  const webapi::FilmReport report;
  EXPECT_FALSE(report.IsWhole());
  Report("out_time=1\nprogress=continue\n");
  EXPECT_FALSE(report.IsWhole());
  Report("out_time=2\nprogress=end\n");
  EXPECT_TRUE(report.IsWhole());
}

TEST(FilmReport, ForgetsTheTranscoderBefore) {
  std::optional<webapi::FilmReport> report(std::in_place);
  Report("progress=end\n");
  report.reset();
  EXPECT_EQ(getenv(orvo::kProgressVariable), nullptr);
  report.emplace();
  EXPECT_FALSE(report->IsWhole());
}

}  // namespace
