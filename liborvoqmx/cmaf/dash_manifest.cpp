#include <array>
#include <cstdio>

#include "cmaf/addresses.h"
#include "cmaf/presentation.h"
#include "util/xml_text.h"

namespace LibOrvoQMX {
namespace {

constexpr char kEverything[] = "$RepresentationID$";

std::string Length(int64_t ticks) {
  std::array<char, 48> text;
  snprintf(text.data(), text.size(), "PT%.5fS",
           static_cast<double>(ticks) / static_cast<double>(orvo::kPlanClock));
  return text.data();
}

// Spans of equal length in a row are one line.
std::string Timeline(const orvo::CmafPlan& plan) {
  std::string lines = "<SegmentTimeline>";
  for (int number = 0; number < plan.Count();) {
    const int64_t length = plan.End(number) - plan.Start(number);
    int next = number + 1;
    while (next < plan.Count() && plan.End(next) - plan.Start(next) == length) {
      ++next;
    }
    const int repeats = next - number - 1;
    lines += "<S t=\"" + std::to_string(plan.Start(number)) + "\" d=\"" + std::to_string(length) +
             (repeats > 0 ? "\" r=\"" + std::to_string(repeats) : "") + "\"/>";
    number = next;
  }
  return lines + "</SegmentTimeline>";
}

std::string Template(const CmafPresentation& presentation) {
  return "<SegmentTemplate timescale=\"" + std::to_string(orvo::kPlanClock) +
         "\" startNumber=\"0\" initialization=\"" +
         orvo::XmlText(HeaderAddress(presentation, kEverything)) + "\" media=\"" +
         orvo::XmlText(SegmentAddress(presentation, kEverything)) + "$Number$\">" +
         Timeline(presentation.plan) + "</SegmentTemplate>";
}

std::string PictureRepresentation(const CmafPresentation& presentation,
                                  const CmafRendition& rendition) {
  const orvo::CmafPlan& plan = presentation.plan;
  return "<Representation id=\"" + rendition.name + "\" bandwidth=\"" +
         std::to_string(rendition.bandwidth) + "\" codecs=\"" + rendition.codec + "\" width=\"" +
         std::to_string(rendition.width) + "\" height=\"" + std::to_string(rendition.height) +
         "\" frameRate=\"" + std::to_string(plan.rate) + "/" + std::to_string(plan.scale) + "\"/>";
}

std::string FamilyOf(const CmafRendition& rendition) {
  return rendition.codec.substr(0, rendition.codec.find('.'));
}

// Players change renditions only within a set, and only between pictures of one codec.
std::string PictureSets(const CmafPresentation& presentation) {
  std::string sets;
  std::string family;
  for (const CmafRendition& rendition : presentation.renditions) {
    if (!rendition.isPicture) {
      continue;
    }
    if (FamilyOf(rendition) != family) {
      sets += family.empty() ? "" : "</AdaptationSet>";
      family = FamilyOf(rendition);
      sets +=
          "<AdaptationSet contentType=\"video\" mimeType=\"video/mp4\" startWithSAP=\"1\" "
          "segmentAlignment=\"true\">" +
          Template(presentation);
    }
    sets += PictureRepresentation(presentation, rendition);
  }
  return sets + (family.empty() ? "" : "</AdaptationSet>");
}

std::string SoundSet(const CmafPresentation& presentation, const CmafRendition& rendition) {
  std::string set =
      "<AdaptationSet contentType=\"audio\" mimeType=\"audio/mp4\" "
      "startWithSAP=\"1\" segmentAlignment=\"true\"";
  set += rendition.language.empty() ? "" : " lang=\"" + rendition.language + "\"";
  set += std::string("><Role schemeIdUri=\"urn:mpeg:dash:role:2011\" value=\"") +
         (rendition.isDefault ? "main" : "alternate") + "\"/><Label>" +
         orvo::XmlText(rendition.label) + "</Label>" + Template(presentation);
  set += "<Representation id=\"" + rendition.name + "\" bandwidth=\"" +
         std::to_string(rendition.bandwidth) + "\" codecs=\"" + rendition.codec + "\">";
  set += rendition.channels == 0
             ? ""
             : "<AudioChannelConfiguration schemeIdUri=\""
               "urn:mpeg:dash:23003:3:audio_channel_configuration:2011\" value=\"" +
                   std::to_string(rendition.channels) + "\"/>";
  return set + "</Representation></AdaptationSet>";
}

std::string SubtitleSet(const CmafPresentation& presentation, const CmafSubtitle& subtitle,
                        size_t number) {
  return "<AdaptationSet contentType=\"text\" mimeType=\"text/vtt\" lang=\"" +
         orvo::XmlText(subtitle.language) +
         "\"><Role schemeIdUri=\"urn:mpeg:dash:role:2011\" value=\"" +
         (subtitle.isForced ? "forced-subtitle" : "subtitle") + "\"/>" +
         (subtitle.title.empty() ? "" : "<Label>" + orvo::XmlText(subtitle.title) + "</Label>") +
         "<Representation id=\"subtitle-" + std::to_string(number) +
         "\" bandwidth=\"256\"><BaseURL>" +
         orvo::XmlText(SubtitleAddress(presentation, subtitle.id)) +
         "</BaseURL></Representation></AdaptationSet>";
}

// DASH has no chapters of its own, so they are events.
std::string ChapterEvents(const CmafPresentation& presentation) {
  if (presentation.chapters.empty()) {
    return "";
  }
  std::string events = "<EventStream schemeIdUri=\"urn:mirevo:chapters\" timescale=\"" +
                       std::to_string(orvo::kPlanClock) + "\">";
  for (size_t i = 0; i < presentation.chapters.size(); ++i) {
    const CmafChapter& chapter = presentation.chapters[i];
    events += "<Event id=\"" + std::to_string(i) + "\" presentationTime=\"" +
              std::to_string(chapter.start) + "\" duration=\"" +
              std::to_string(chapter.end - chapter.start) + "\">" + orvo::XmlText(chapter.title) +
              "</Event>";
  }
  return events + "</EventStream>";
}

}  // namespace

std::string DashManifest(const CmafPresentation& presentation) {
  std::string manifest =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" "
      "profiles=\"urn:mpeg:dash:profile:cmaf:2019\" type=\"static\" minBufferTime=\"PT1S\" "
      "mediaPresentationDuration=\"" +
      Length(presentation.plan.cuts.back()) + "\"><Period id=\"0\" start=\"PT0S\">";
  manifest += ChapterEvents(presentation);
  manifest += PictureSets(presentation);
  for (const CmafRendition& rendition : presentation.renditions) {
    manifest += rendition.isPicture ? "" : SoundSet(presentation, rendition);
  }
  for (size_t i = 0; i < presentation.subtitles.size(); ++i) {
    manifest += SubtitleSet(presentation, presentation.subtitles[i], i);
  }
  return manifest + "</Period></MPD>\n";
}

}  // namespace LibOrvoQMX
