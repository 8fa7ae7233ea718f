#include "webapi/library/film_title.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <chrono>
#include <fstream>
#include <string>

namespace webapi {
namespace {

// The names that the page is tested with, too.
Json::Value Table() {
  std::ifstream file(ORVO_SOURCE_DIR "/tests/player/titles.json");
  Json::Value table;
  file >> table;
  return table;
}

std::string PathOf(const Json::Value& row) {
  std::string path = "/films";
  for (const Json::Value& folder : row["folders"]) {
    path.append("/").append(folder.asString());
  }
  return path.append("/").append(row["name"].asString());
}

// The page shows a name that tells nothing with its ending, which a television has no use for.
std::string Expected(const Json::Value& row) {
  const std::string line = row["line"].asString();
  const auto dot = line.rfind('.');
  const bool isName = line == row["name"].asString() && dot != 0 && dot != std::string::npos;
  return isName ? line.substr(0, dot) : line;
}

TEST(FilmTitle, IsTheOneThatThePageShows) {
  const Json::Value table = Table();
  ASSERT_GT(table.size(), 20U);
  for (const Json::Value& row : table) {
    const Json::Value notes = row.get("notes", Json::Value(Json::objectValue));
    EXPECT_EQ(TitleLine(PathOf(row), notes, row.get("tag", "").asString()), Expected(row));
  }
}

TEST(FilmTitle, OfTheLongestNameTakesNoTime) {
  for (const char* const part : {"s", " ", "s1e", "1x", "2019", "[._-", "1080p."}) {
    std::string name;
    while (name.size() < 250) {
      name += part;
    }
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_FALSE(TitleLine("/films/" + name, Json::Value(Json::objectValue), "").empty());
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(1)) << part;
  }
}

}  // namespace
}  // namespace webapi
