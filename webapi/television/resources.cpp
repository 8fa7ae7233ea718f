#include "webapi/television/resources.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "util/lower_case.h"
#include "util/media_names.h"
#include "util/system_files.h"
#include "webapi/library/beside.h"
#include "webapi/library/media_types.h"

namespace webapi {
namespace {

namespace fs = std::filesystem;

// Streaming and background transfers, a server that waits for a paused player, DLNA 1.5.
constexpr char kFlags[] = "DLNA.ORG_FLAGS=01700000000000000000000000000000";

// ".mkv", for televisions that look at the ending; "" for an unusual one.
std::string EndingOf(const std::string& path) {
  const std::string ending = orvo::LowerCase(fs::path(path).extension().string());
  const bool isPlain =
      !ending.empty() && std::all_of(ending.begin() + 1, ending.end(), [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
      });
  return isPlain ? ending : "";
}

void CopyKnown(const Json::Value& facts, const char* name, Json::Value& form) {
  if (facts.isObject() && facts[name].isUInt() && facts[name].asUInt() > 0) {
    form[name] = facts[name];
  }
}

Json::Value DescribeOwnForm(const orvo::MediaFile& film, const Json::Value& facts,
                            const std::string& address) {
  const std::string type = MediaTypeOf(film.Path());
  Json::Value form(Json::objectValue);
  form["address"] = address + "/" + kOwnForm + EndingOf(film.Path());
  form["type"] = type;
  form["features"] = FeaturesOf(type);
  form["size"] = static_cast<Json::Int64>(film.Status().st_size);
  CopyKnown(facts, "duration", form);
  if (!orvo::IsMusicName(film.Path())) {
    CopyKnown(facts, "width", form);
    CopyKnown(facts, "height", form);
  }
  return form;
}

Json::Value DescribeConversion(const Json::Value& facts, const std::string& address) {
  Json::Value form(Json::objectValue);
  form["address"] = address + "/" + kConvertedForm;
  form["type"] = kConvertedType;
  form["features"] = FeaturesOfConversion();
  CopyKnown(facts, "duration", form);
  return form;
}

// A film whose facts are not known yet may have pictures.
bool MayBeConverted(const orvo::MediaFile& film, const Json::Value& facts) {
  const bool hasPictures = facts.isObject() ? !facts["music"].asBool() && facts["height"] != 0U
                                            : !orvo::IsMusicName(film.Path());
  return hasPictures && access(LibOrvoQMX::kFFmpeg, X_OK) == 0;
}

}  // namespace

std::string FeaturesOf(const std::string& type) {
  // The only name of a profile that follows from the type alone.
  const std::string profile = type == "audio/mpeg" ? "DLNA.ORG_PN=MP3;" : "";
  return profile + "DLNA.ORG_OP=01;DLNA.ORG_CI=0;" + kFlags;
}

std::string FeaturesOfConversion() {
  return std::string("DLNA.ORG_OP=10;DLNA.ORG_CI=1;") + kFlags;
}

orvo::MediaFile SubtitleBeside(const orvo::MediaFile& film) {
  return OpenBeside(film.Path(), fs::path(film.Path()).replace_extension(".srt").string());
}

Json::Value DescribeForms(const orvo::MediaFile& film, const Json::Value& facts,
                          const std::string& address) {
  Json::Value forms(Json::arrayValue);
  forms.append(DescribeOwnForm(film, facts, address));
  if (MayBeConverted(film, facts)) {
    forms.append(DescribeConversion(facts, address));
  }
  return forms;
}

}  // namespace webapi
