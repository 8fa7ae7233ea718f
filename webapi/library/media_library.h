// The folders whose films a client may see.
#pragma once

#include <json/value.h>
#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "metadata/video_metadata.h"
#include "platform/media_file.h"
#include "util/paths.h"
#include "webapi/http/answer.h"
#include "webapi/http/request.h"

namespace webapi {

// The configured media roots: files and folders, absolute, links resolved. From the JSON array of
// paths
// "/var/packages/Mirevo/etc/media_roots"; entries that do not exist are left out.
std::vector<std::string> MediaRoots();

// Limits this process to the part of the media roots inside these paths. The limit holds for the
// whole process, because a request works for one account.
void LimitMediaRoots(const std::vector<std::string>& paths);

// Is this real path inside a media root?
bool MaySee(const std::string& path);

// The real path of a client's path, with links resolved; it is inside a media root. If the path
// does not exist or the client may not see it, returns nothing and sets `refusal` to the answer.
std::optional<std::string> ResolveMediaPath(const std::string& path, Answer& refusal);

// Opens the film that a client's path leads to, once for the whole request. If there is none or the
// client may not see it, returns nothing and sets `refusal` to the answer.
std::optional<orvo::MediaFile> OpenFilm(const std::string& path, Answer& refusal);

// Probes the film, or takes what is kept of it. Returns false and sets `refusal` to the answer if
// the file is no film.
bool LoadFilm(const orvo::MediaFile& file, LibOrvoQMX::VideoMetaData& film, Answer& refusal);

// Opens a file by its real path, below the media root that holds it. Not open, with errno set, if
// no root does.
orvo::MediaFile OpenVisible(const std::string& path);

// Is a path without links equal to or below one of `roots`?
bool LiesIn(const std::vector<std::string>& roots, const std::string& path);

// The status of what an entry of a visible folder is or, for a link, leads to. Nothing if it is
// missing. A link that leads out of `roots` counts as missing.
std::optional<struct stat> StatusInRoots(const std::vector<std::string>& roots,
                                         const std::string& entry);

using orvo::RealPath;

// One entry of a listing. "encoded_path" holds the exact bytes in the form for a query. "path" is
// for people; it differs from the exact bytes if a name is not UTF-8.
Json::Value DescribeEntry(const std::string& path, const struct stat& status);

// The folders and playable files in the folder "path" (the media roots for ""), sorted as people do
// it (util/name_order.h), and the "parent" to go back to, if there is one. Folders that systems
// keep for themselves are left out (util/media_names.h). "sort" and "show" choose another order
// and a part of the films (folder_view.h). With "limit", a part of the entries after
// the first "offset", folders first, and in "next" the offset of the following part, if there is
// one. A part may be shorter than its limit, because links that lead nowhere are left out.
Answer ListFolder(const Request& request);

}  // namespace webapi
