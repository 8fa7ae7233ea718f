// The forms in which a television can get a film, and how it tells them apart.
//
// The fourth part of a form's description ("http-get:*:video/mp2t:DLNA.ORG_OP=10;...") says what
// the server can do with it: the two digits of OP stand for seeking by time and by bytes, CI=1 for
// a conversion. A television takes the first form whose type is in its own list.
#pragma once

#include <json/value.h>

#include <string>

#include "platform/media_file.h"

namespace webapi {

// The last parts of the addresses of a film's forms.
inline constexpr char kOwnForm[] = "film";  // with the ending of the film's name
inline constexpr char kConvertedForm[] = "converted.ts";
inline constexpr char kPosterForm[] = "poster.jpg";
inline constexpr char kSubtitleForm[] = "subtitle.srt";

inline constexpr char kConvertedType[] = "video/mp2t";

// The fourth part for the file as it is, with this type, and for the conversion.
std::string FeaturesOf(const std::string& type);
std::string FeaturesOfConversion();

// The subtitle file beside the film; not open if there is none.
orvo::MediaFile SubtitleBeside(const orvo::MediaFile& film);

// The forms of a film, the file itself first: "address", "type", "features"; "size" (bytes),
// "duration" (seconds), "width" and "height" where they are known. `facts` are those of
// film_card.h, null if they are not known yet. `address`: of the film, without a form.
Json::Value DescribeForms(const orvo::MediaFile& film, const Json::Value& facts,
                          const std::string& address);

}  // namespace webapi
