#include "webapi/choice/copied_pictures.h"

#include <fstream>

#include "cmaf/renditions.h"
#include "platform/io.h"
#include "util/film_cache.h"
#include "webapi/library/film_cache.h"
#include "webapi/library/film_traits.h"

namespace webapi {
namespace {

using orvo::CachePath;

std::string KnowledgePath(const orvo::MediaFile& file) {
  return CachePath(file, "cmaf pictures 1", ".txt");
}

// Nothing stands against a copy of a film without a plan.
orvo::CmafKnowledge KnowledgeOf(const orvo::MediaFile& file) {
  std::ifstream kept(KnowledgePath(file));
  std::string text;
  const bool isKept = kept.is_open() && orvo::ReadAll(kept, text);
  return isKept ? orvo::CmafKnowledge::Parse(text)
                : orvo::CmafKnowledge{orvo::kCmafCopied, orvo::kCmafStandardRange, std::nullopt};
}

}  // namespace

void KeepCmafKnowledge(const orvo::MediaFile& file, const orvo::CmafKnowledge& known) {
  if (KnowledgeOf(file).Text() != known.Text()) {
    (void)KeepInCache(KnowledgePath(file), known.Text());
  }
}

std::string WhyPicturesAreNotCopied(const Request& request, const orvo::MediaFile& file,
                                    const LibOrvoQMX::VideoMetaData& film) {
  if (!HasPictures(film)) {
    return "";
  }
  const orvo::CmafKnowledge known = KnowledgeOf(file);
  if (known.copying == orvo::kCmafNoPicture) {
    return "";
  }
  LibOrvoQMX::CmafWishes wishes;
  wishes.codecs = request.Text("codecs");
  wishes.showsHdr = request.Text("dynamic_range") == "hdr";
  wishes.copying = known.copying;
  wishes.dynamicRange = known.dynamicRange;
  return WhyNotCopied(film, wishes);
}

}  // namespace webapi
