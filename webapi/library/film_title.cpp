#include "webapi/library/film_title.h"

#include <json/reader.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <regex>
#include <sstream>
#include <vector>

#include "webapi/library/title_patterns.h"  // made by CMake

namespace webapi {
namespace {

namespace fs = std::filesystem;

std::regex Matching(const Json::Value& pattern) {
  return std::regex(pattern.asString(), std::regex::ECMAScript | std::regex::icase);
}

struct Patterns {
  explicit Patterns(const Json::Value& table)
      : ending(Matching(table["ending"])),
        seasonFolder(Matching(table["seasonFolder"])),
        leadingNumber(Matching(table["leadingNumber"])),
        yearOfShow(Matching(table["yearOfShow"])),
        year(Matching(table["year"])),
        lines(Matching(table["lines"])),
        copy(Matching(table["copy"])) {
    for (const Json::Value& pattern : table["numbered"]) {
      numbered.push_back(Matching(pattern));
    }
  }

  std::regex ending, seasonFolder, leadingNumber, yearOfShow, year, lines, copy;
  std::vector<std::regex> numbered;
};

// Made for the first title: most requests need none.
const Patterns& ThePatterns() {
  static const Patterns patterns([] {
    Json::Value table;
    std::istringstream(kTitlePatterns) >> table;
    return table;
  }());
  return patterns;
}

std::string Without(const std::string& text, const std::regex& pattern) {
  return std::regex_replace(text, pattern, "", std::regex_constants::format_first_only);
}

std::string OrElse(const std::string& text, const std::string& other) {
  return text.empty() ? other : text;
}

std::string WithoutCopy(const std::string& text) {
  return Without(text, ThePatterns().copy);
}

// Dots and underscores stand for spaces in a name that has none.
std::string Spaced(const std::string& text) {
  static const std::regex gaps("[._]+");
  static const std::regex edges("^[\\s.-]+|[\\s-]+$");
  const bool hasSpaces = text.find(' ') != std::string::npos;
  return std::regex_replace(hasSpaces ? text : std::regex_replace(text, gaps, " "), edges, "");
}

// `rest` has lost the gap before it, which a word for the copy needs.
std::string RestTitle(const std::string& rest) {
  return Spaced(WithoutCopy("." + rest));
}

int NumberIn(const std::ssub_match& digits) {
  return std::stoi(digits.str());  // a pattern has let in three or four digits
}

Json::Value Episode(const std::string& show, const std::ssub_match& season,
                    const std::ssub_match& episode, const std::string& rest) {
  Json::Value about(Json::objectValue);
  about["show"] = show;
  about["season"] = NumberIn(season);
  about["episode"] = NumberIn(episode);
  about["title"] = RestTitle(rest);
  return about;
}

std::optional<Json::Value> Numbered(const std::string& stem) {
  std::smatch found;
  for (const std::regex& pattern : ThePatterns().numbered) {
    if (std::regex_search(stem, found, pattern)) {
      const std::string show = found[1];
      return Episode(Spaced(OrElse(Without(show, ThePatterns().yearOfShow), show)), found[2],
                     found[3], found[4]);
    }
  }
  return std::nullopt;
}

// In a folder like "Season 2", a leading number is the episode's.
std::optional<Json::Value> InSeason(const std::string& stem, const fs::path& folder) {
  const std::string name = folder.filename().string();
  std::smatch season, found;
  const bool isEpisode = std::regex_search(name, season, ThePatterns().seasonFolder) &&
                         std::regex_search(stem, found, ThePatterns().leadingNumber);
  return isEpisode ? std::optional(Episode(folder.parent_path().filename().string(), season[1],
                                           found[1], found[2]))
                   : std::nullopt;
}

std::optional<Json::Value> Dated(const std::string& stem) {
  std::smatch found;
  if (!std::regex_search(stem, found, ThePatterns().year)) {
    return std::nullopt;
  }
  Json::Value about(Json::objectValue);
  about["title"] = Spaced(WithoutCopy(found[1]));
  about["year"] = NumberIn(found[2]);
  return about;
}

std::optional<Json::Value> Copied(const std::string& stem) {
  if (!std::regex_search(stem, ThePatterns().lines)) {
    return std::nullopt;
  }
  Json::Value about(Json::objectValue);
  about["title"] = Spaced(WithoutCopy(stem));
  return about;
}

// What the name tells; nothing if it tells no more than itself.
std::optional<Json::Value> AboutName(const std::string& stem, const fs::path& folder) {
  auto about = Numbered(stem);
  about = about ? about : InSeason(stem, folder);
  about = about ? about : Dated(stem);
  about = about ? about : Copied(stem);
  const bool tells = about && (about->isMember("episode") || !(*about)["title"].asString().empty());
  return tells ? about : std::nullopt;
}

std::string LineOf(const Json::Value& about) {
  const std::string title = about["title"].asString();
  if (!about.isMember("episode")) {
    const bool isDated = about.isMember("year");
    return isDated ? title + " (" + std::to_string(about["year"].asInt()) + ")" : title;
  }
  std::array<char, 32> code{};
  snprintf(code.data(), code.size(), "S%02dE%02d", about["season"].asInt(),
           about["episode"].asInt());
  const std::string show = about["show"].asString();
  const std::string place = show.empty() ? code.data() : show + " " + code.data();
  return title.empty() ? place : place + " – " + title;
}

}  // namespace

std::string TitleLine(const std::string& path, const Json::Value& notes, const std::string& tag) {
  const fs::path file(path);
  const std::string name = file.filename().string();
  const std::string stem = OrElse(Without(name, ThePatterns().ending), name);
  auto about = AboutName(stem, file.parent_path());
  if (notes["title"].isString()) {
    Json::Value all = about.value_or(Json::Value(Json::objectValue));
    for (const std::string& member : notes.getMemberNames()) {
      all[member] = notes[member];
    }
    return LineOf(all);
  }
  return about ? LineOf(*about) : OrElse(tag, stem);
}

}  // namespace webapi
