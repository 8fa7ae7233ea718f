// The names by which televisions know folders and films.
//
// A name is the path, encrypted and authenticated: it tells a television nothing, nobody else can
// make one, and it stays the same as long as the path does. It opens only for the account that it
// was made for. It adds no right: the path in it is checked like that of any request.
#pragma once

#include <optional>
#include <string>

#include "webapi/television/admission.h"

namespace webapi {

// The name of the folder above all others.
inline constexpr char kTopId[] = "0";

std::string ObjectIdOf(const Admission& admission, const std::string& path);

// The path in such a name. Nothing for any other text.
std::optional<std::string> PathOfObject(const Admission& admission, const std::string& id);

}  // namespace webapi
