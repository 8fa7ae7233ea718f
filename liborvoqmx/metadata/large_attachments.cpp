#include "metadata/large_attachments.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "metadata/matroska_elements.h"

namespace LibOrvoQMX {
namespace {

// Elements of Matroska.
constexpr std::string_view kAttachmentsId = "\x19\x41\xa4\x69";
constexpr uint32_t kAttachments = 0x1941a469;
constexpr uint32_t kAttachedFile = 0x61a7;
constexpr uint32_t kMediaType = 0x4660;

// Attachments that are smaller in all do no harm.
constexpr int64_t kLarge = 32 << 20;
constexpr int kMostElements = 20000;  // that are looked at

bool IsPicture(const orvo::MediaFile& film, const MatroskaElement& attachment, int& budget) {
  constexpr std::string_view kPictures = "image/";
  bool isPicture = false;
  ForEachWithin(film, attachment, budget, [&](const MatroskaElement& part) {
    if (part.id == kMediaType) {
      isPicture = BytesAt(film, part.body, kPictures.size()) == kPictures;
    }
    return part.id != kMediaType;
  });
  return isPicture;
}

}  // namespace

void LargeAttachments::Hide(int64_t position, uint8_t* bytes, size_t count) {
  LookFor(position, bytes, count);
  const int64_t end = position + static_cast<int64_t>(count);
  for (const Replacement& replacement : replacements_) {
    int64_t place = replacement.position;
    for (const char byte : replacement.bytes) {
      if (place >= position && place < end) {
        bytes[place - position] = static_cast<uint8_t>(byte);
      }
      ++place;
    }
  }
}

// The id may begin in the bytes before.
void LargeAttachments::LookFor(int64_t position, const uint8_t* bytes, size_t count) {
  const int64_t before = std::min<int64_t>(position, kAttachmentsId.size() - 1);
  std::string text = BytesAt(film_, position - before, static_cast<size_t>(before));
  text.append(reinterpret_cast<const char*>(bytes), count);
  for (size_t found = text.find(kAttachmentsId); found != std::string::npos;
       found = text.find(kAttachmentsId, found + 1)) {
    LookInto(position - before + static_cast<int64_t>(found));
  }
}

void LargeAttachments::LookInto(int64_t position) {
  const auto list = ElementAt(film_, position);
  if (position == seen_ || !list || list->id != kAttachments || list->end - list->body <= kLarge) {
    return;
  }
  seen_ = position;
  replacements_.clear();
  int budget = kMostElements;
  ForEachWithin(film_, *list, budget, [&](const MatroskaElement& attachment) {
    if (attachment.id == kAttachedFile && !IsPicture(film_, attachment, budget)) {
      replacements_.push_back({attachment.begin, VoidHeader(attachment)});
    }
    return true;
  });
}

}  // namespace LibOrvoQMX
