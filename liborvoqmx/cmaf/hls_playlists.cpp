#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>

#include "cmaf/addresses.h"
#include "cmaf/presentation.h"

namespace LibOrvoQMX {
namespace {

constexpr char kPlaylistHead[] = "#EXTM3U\n#EXT-X-VERSION:7\n#EXT-X-INDEPENDENT-SEGMENTS\n";

double Seconds(int64_t ticks) {
  return static_cast<double>(ticks) / static_cast<double>(orvo::kPlanClock);
}

std::string Decimal(double number) {
  std::array<char, 32> text;
  return {text.data(), static_cast<size_t>(snprintf(text.data(), text.size(), "%.5f", number))};
}

std::string TargetDuration(const orvo::CmafPlan& plan) {
  int64_t longest = 0;
  for (int number = 0; number < plan.Count(); ++number) {
    longest = std::max(longest, plan.End(number) - plan.Start(number));
  }
  return std::to_string(std::max(1L, std::lround(Seconds(longest) + 0.499)));
}

// Renditions of sound that one variant offers together: those of one codec.
struct SoundGroup {
  std::string id;
  std::vector<const CmafRendition*> members;
  std::string codecs;
  unsigned bandwidth = 0;
};

bool IsAac(const CmafRendition& sound) {
  return sound.codec.rfind("mp4a.40", 0) == 0;
}

void Finish(SoundGroup& group) {
  std::set<std::string> seen;
  for (const CmafRendition* const member : group.members) {
    group.bandwidth = std::max(group.bandwidth, member->bandwidth);
    if (seen.insert(member->codec).second) {
      group.codecs += (group.codecs.empty() ? "" : ",") + member->codec;
    }
  }
}

SoundGroup GroupOf(const CmafPresentation& presentation, const std::string& codec) {
  SoundGroup group;
  group.id = codec.empty() ? "aac" : codec.substr(0, codec.find('.'));
  for (const CmafRendition& rendition : presentation.renditions) {
    if (!rendition.isPicture && (codec.empty() ? IsAac(rendition) : rendition.codec == codec)) {
      group.members.push_back(&rendition);
    }
  }
  Finish(group);
  return group;
}

// The groups with what the client wants first.
std::vector<SoundGroup> SoundGroups(const CmafPresentation& presentation) {
  std::vector<std::string> codecs;
  for (const CmafRendition& rendition : presentation.renditions) {
    const bool isNew = std::find(codecs.begin(), codecs.end(), rendition.codec) == codecs.end();
    if (!rendition.isPicture && !IsAac(rendition) && isNew) {
      codecs.push_back(rendition.codec);
    }
  }
  std::vector<SoundGroup> groups;
  const SoundGroup aac = GroupOf(presentation, "");
  if (!aac.members.empty()) {
    groups.push_back(aac);
  }
  for (const std::string& codec : codecs) {
    groups.push_back(GroupOf(presentation, codec));
  }
  return groups;
}

// The member that plays without a choice: the film's or the client's, else the first one.
const CmafRendition* DefaultOf(const SoundGroup& group) {
  const auto found = std::find_if(group.members.begin(), group.members.end(),
                                  [](const CmafRendition* member) { return member->isDefault; });
  return found == group.members.end() ? group.members.front() : *found;
}

std::string MediaLine(const CmafPresentation& presentation, const SoundGroup& group,
                      const CmafRendition& sound) {
  const bool isDefault = &sound == DefaultOf(group);
  std::string line =
      "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"" + group.id + "\",NAME=\"" + sound.label + "\"";
  line += sound.language.empty() ? "" : ",LANGUAGE=\"" + sound.language + "\"";
  line += isDefault ? ",DEFAULT=YES,AUTOSELECT=YES" : ",DEFAULT=NO,AUTOSELECT=YES";
  line += sound.channels == 0 ? "" : ",CHANNELS=\"" + std::to_string(sound.channels) + "\"";
  return line + ",URI=\"" + MediaPlaylistAddress(presentation, sound.name) + "\"\n";
}

std::string SubtitleLines(const CmafPresentation& presentation) {
  std::string lines;
  std::map<std::string, int> counts;
  for (const CmafSubtitle& subtitle : presentation.subtitles) {
    const std::string label = subtitle.title.empty() ? subtitle.language : subtitle.title;
    const int count = ++counts[label];
    const std::string name = count == 1 ? label : label + "-" + std::to_string(count);
    const bool isDefault = subtitle.id == presentation.defaultSubtitle;
    lines += "#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subs\",NAME=\"" + name + "\",LANGUAGE=\"" +
             subtitle.language + "\",FORCED=";
    lines += subtitle.isForced ? "YES" : "NO";
    lines += ",AUTOSELECT=YES,DEFAULT=";
    lines += isDefault ? "YES" : "NO";
    lines += ",URI=\"" + SubtitlePlaylistAddress(presentation, subtitle.id) + "\"\n";
  }
  return lines;
}

const char* RangeOf(const CmafPresentation& presentation, const CmafRendition& rendition) {
  if (rendition.IsEncodedPicture() || presentation.dynamicRange == orvo::kCmafStandardRange) {
    return "SDR";
  }
  return presentation.dynamicRange == orvo::kCmafPq ? "PQ" : "HLG";
}

std::string Variant(const CmafPresentation& presentation, const CmafRendition& rendition,
                    const SoundGroup* sound) {
  constexpr unsigned kPeak = 2;  // a copy's peaks are not known
  const bool isCopy = rendition.isPicture && !rendition.IsEncodedPicture();
  const unsigned average = rendition.bandwidth + (sound != nullptr ? sound->bandwidth : 0);
  const orvo::CmafPlan& plan = presentation.plan;
  std::string line =
      "#EXT-X-STREAM-INF:BANDWIDTH=" + std::to_string(isCopy ? average * kPeak : average) +
      ",AVERAGE-BANDWIDTH=" + std::to_string(average) + ",CODECS=\"" + rendition.codec +
      (sound != nullptr ? "," + sound->codecs : "") + "\"";
  if (rendition.isPicture) {
    line += ",RESOLUTION=" + std::to_string(rendition.width) + "x" +
            std::to_string(rendition.height) + ",FRAME-RATE=" +
            Decimal(static_cast<double>(plan.rate) / static_cast<double>(plan.scale)).substr(0, 6) +
            ",VIDEO-RANGE=" + RangeOf(presentation, rendition);
  }
  line += sound != nullptr ? ",AUDIO=\"" + sound->id + "\"" : "";
  line += presentation.subtitles.empty() ? "" : ",SUBTITLES=\"subs\"";
  return line + "\n" + MediaPlaylistAddress(presentation, rendition.name) + "\n";
}

}  // namespace

const CmafRendition* CmafPresentation::Find(const std::string& name) const {
  const auto found = std::find_if(renditions.begin(), renditions.end(),
                                  [&](const CmafRendition& row) { return row.name == name; });
  return found == renditions.end() ? nullptr : &*found;
}

std::string MultivariantPlaylist(const CmafPresentation& presentation) {
  const std::vector<SoundGroup> groups = SoundGroups(presentation);
  const bool hasPicture =
      std::any_of(presentation.renditions.begin(), presentation.renditions.end(),
                  [](const CmafRendition& row) { return row.isPicture; });
  std::string playlist = kPlaylistHead;
  if (!presentation.chapters.empty()) {
    playlist += "#EXT-X-SESSION-DATA:DATA-ID=\"com.apple.hls.chapters\",FORMAT=JSON,URI=\"" +
                ChapterListAddress(presentation) + "\"\n";
  }
  if (hasPicture) {
    for (const SoundGroup& group : groups) {
      for (const CmafRendition* const sound : group.members) {
        playlist += MediaLine(presentation, group, *sound);
      }
    }
  }
  playlist += SubtitleLines(presentation);
  for (const CmafRendition& rendition : presentation.renditions) {
    if (rendition.isPicture != hasPicture) {
      continue;
    }
    if (!hasPicture || groups.empty()) {
      playlist += Variant(presentation, rendition, nullptr);
    }
    for (size_t i = 0; hasPicture && i < groups.size(); ++i) {
      playlist += Variant(presentation, rendition, &groups[i]);
    }
  }
  return playlist;
}

std::string MediaPlaylist(const CmafPresentation& presentation, const CmafRendition& rendition) {
  const orvo::CmafPlan& plan = presentation.plan;
  const std::string address = SegmentAddress(presentation, rendition.name);
  std::string playlist = kPlaylistHead;
  playlist += "#EXT-X-TARGETDURATION:" + TargetDuration(plan) +
              "\n#EXT-X-MEDIA-SEQUENCE:0\n#EXT-X-PLAYLIST-TYPE:VOD\n#EXT-X-MAP:URI=\"" +
              HeaderAddress(presentation, rendition.name) + "\"\n";
  for (int number = 0; number < plan.Count(); ++number) {
    playlist += "#EXTINF:";
    playlist += Decimal(Seconds(plan.End(number) - plan.Start(number)));
    playlist += ",\n";
    playlist += address;
    playlist += std::to_string(number);
    playlist += "\n";
  }
  return playlist + "#EXT-X-ENDLIST\n";
}

std::string SubtitlePlaylist(const CmafPresentation& presentation, const std::string& id) {
  const double length = Seconds(presentation.plan.cuts.back());
  return "#EXTM3U\n#EXT-X-VERSION:7\n#EXT-X-TARGETDURATION:" +
         std::to_string(std::lround(length + 0.5)) +
         "\n#EXT-X-MEDIA-SEQUENCE:0\n#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:" + Decimal(length) + ",\n" +
         SubtitleAddress(presentation, id) + "\n#EXT-X-ENDLIST\n";
}

}  // namespace LibOrvoQMX
