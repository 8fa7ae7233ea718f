// The folders whose films may be seen.
#pragma once

#include <json/value.h>
#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "webapi/http/answer.h"

namespace webapi {

// The configured media roots: files and folders, absolute, links resolved. From the JSON array of
// paths
// "/var/packages/Mirevo/etc/media_roots"; entries that do not exist are left out.
std::vector<std::string> MediaRoots();

// From now on this process sees no more of the media roots than what lies in these paths. A request
// works for one account only.
void LimitMediaRoots(const std::vector<std::string>& paths);

// Does this real path lie in a media root?
bool MaySee(const std::string& path);

// The real path of what a client asks for; it lies in a media root, after links are resolved.
// Nothing, with the answer in `refusal`, when there is no such path or it is not the client's to
// see.
std::optional<std::string> ResolveMediaPath(const std::string& path, Answer& refusal);

// The same for a path that must name a playable file.
std::optional<std::string> ResolveFilm(const std::string& path, Answer& refusal);

// Is a path without links one of `roots` or below one?
bool LiesIn(const std::vector<std::string>& roots, const std::string& path);

// Where a path leads, without links; "" when there is no such thing.
std::string RealPath(const std::string& path);

// One entry of a listing. "path" is for people where a name is not UTF-8; "encoded_path" is the
// exact bytes, ready to stand in a query.
Json::Value DescribeEntry(const std::string& path, const struct stat& status);

// The folders and playable files in the folder `path` (the media roots for ""), sorted by name, and
// the "parent" to go back to, if there is one. Folders that systems keep for themselves are left
// out (util/media_names.h).
Answer ListFolder(const std::string& path);

}  // namespace webapi
