#include "webapi/library/subtitle_form.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace webapi {
namespace {

struct CodecForm {
  std::string_view codec;
  SubtitleForm form;
};
constexpr std::array kCodecForms = {
    CodecForm{"subrip", SubtitleForm::kText},
    CodecForm{"mov_text", SubtitleForm::kText},
    CodecForm{"ass", SubtitleForm::kAss},
    CodecForm{"ssa", SubtitleForm::kAss},
    CodecForm{"hdmv_pgs_subtitle", SubtitleForm::kPicture},
    CodecForm{"dvd_subtitle", SubtitleForm::kPicture},
};

constexpr std::array kWords = {"", "text", "ass", "picture"};

}  // namespace

const char* WordOf(SubtitleForm form) {
  return kWords[static_cast<size_t>(form)];
}

SubtitleForm FormOfCodec(const std::string& codec) {
  const auto row = std::find_if(kCodecForms.begin(), kCodecForms.end(),
                                [&](const CodecForm& one) { return one.codec == codec; });
  return row == kCodecForms.end() ? SubtitleForm::kNone : row->form;
}

SubtitleForm FormOfFile(const std::string& ending) {
  const bool isScript =
      strcasecmp(ending.c_str(), "ass") == 0 || strcasecmp(ending.c_str(), "ssa") == 0;
  return isScript ? SubtitleForm::kAss : SubtitleForm::kText;
}

}  // namespace webapi
