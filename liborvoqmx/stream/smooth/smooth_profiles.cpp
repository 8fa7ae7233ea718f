#include "stream/smooth/smooth_profiles.h"

#include <algorithm>
#include <array>

namespace LibOrvoQMX {
namespace {

// Widths and heights as texts, in the order of the aspect classes.
struct SizeRow {
  const char* requestedHeight;
  std::array<SmoothSize, kAspectClasses> sizes;
};

// The widest shape keeps the width of the one before it at 720 and 1080.
constexpr std::array kSizes = {
    SizeRow{"240", {{{"320", "240"}, {"430", "240"}, {"560", "240"}}}},
    SizeRow{"320", {{{"430", "320"}, {"560", "320"}, {"750", "320"}}}},
    SizeRow{"480", {{{"640", "480"}, {"850", "480"}, {"1120", "480"}}}},
    SizeRow{"720", {{{"960", "720"}, {"1270", "720"}, {"1280", "540"}}}},
    SizeRow{"1080", {{{"1440", "1080"}, {"1920", "1080"}, {"1920", "820"}}}},
};
static_assert(kSizes.size() == 5);

constexpr std::array kHardwareProfiles = {
    SmoothProfile{"smoothstreaming_240p_h264_smd_vb200_aac_ab40", "240", "200000", "40000"},
    SmoothProfile{"smoothstreaming_240p_h264_smd_vb320_aac_ab40", "240", "320000", "40000"},
    SmoothProfile{"smoothstreaming_320p_h264_smd_vb500_aac_ab64", "320", "500000", "64000"},
    SmoothProfile{"smoothstreaming_320p_h264_smd_vb720_aac_ab64", "320", "720000", "64000"},
    SmoothProfile{"smoothstreaming_hd480_h264_smd_vb1000_aac_ab96", "480", "1000000", "96000"},
    SmoothProfile{"smoothstreaming_hd720_h264_smd_vb1500_aac_ab128", "720", "1500000", "128000"},
    SmoothProfile{"smoothstreaming_hd1080_h264_smd_vb4500_aac_ab128", "1080", "4500000", "128000"},
};
static_assert(kHardwareProfiles.size() == 7);

constexpr std::array kSoftwareProfiles = {
    SmoothProfile{"smoothstreaming_240p_x264_vb200_vf15_aac_ab40", "240", "200000", "40000"},
    SmoothProfile{"smoothstreaming_240p_x264_vb320_vf15_aac_ab40", "240", "320000", "40000"},
    SmoothProfile{"smoothstreaming_320p_x264_vb500_vf15_aac_ab64", "320", "500000", "64000"},
    SmoothProfile{"smoothstreaming_320p_x264_vb720_vf15_aac_ab64", "320", "720000", "64000"},
    SmoothProfile{"smoothstreaming_hd480_x264_vb1000_vf15_aac_ab96", "480", "1000000", "96000"},
    SmoothProfile{"smoothstreaming_hd720_x264_vb1500_vf15_aac_ab128", "720", "1500000", "128000"},
};
static_assert(kSoftwareProfiles.size() == 6);

constexpr std::array kHardwareCodecData = {
    SmoothCodecData{"320x240",
                    "000000016742c029da0507effc00240014400000fa40002ee003c58ba80000000168ce1f20"},
    SmoothCodecData{
        "430x240",
        "000000016742c029da06c7fafff012000d7100000303e90000bb800f162ea00000000168ce1f20"},
    SmoothCodecData{"560x240",
                    "000000016742c029da0231fbff002400231000003e90000bb800f162ea0000000168ce1f20"},
    SmoothCodecData{"430x320",
                    "000000016742c029da06c29ebffc0600035c400000fa40002ee003c58ba80000000168ce1f20"},
    SmoothCodecData{"560x320",
                    "000000016742c029da0230a6ffc00c0008c400000fa40002ee003c58ba800000000168ce1f20"},
    SmoothCodecData{"750x320",
                    "000000016742c029da02f0a7afff0080007d1000003e90000bb800f162ea0000000168ce1f20"},
    SmoothCodecData{"640x480",
                    "000000016742c029da0280f6ffc00240014400000fa40002ee003c58ba800000000168ce1f20"},
    SmoothCodecData{
        "850x480",
        "000000016742c029da0360f788fff024001a9100000303e90000bb800f162ea00000000168ce1f20"},
    SmoothCodecData{
        "1120x480",
        "000000016742c029da01183dbff00240023100000303e90000bb800f162ea00000000168ce1f20"},
    SmoothCodecData{
        "960x720",
        "000000016742c029da03c05bbff00090005100000303e90000bb800f1832a00000000168ce1f20"},
    SmoothCodecData{
        "1270x720",
        "000000016742c029da014016f9bffc0d8009ec400000fa40002ee003c60ca80000000168ce1f20"},
    SmoothCodecData{
        "1280x540",
        "000000016742c029da0140117efff00510050100000303e90000bb800f1832a00000000168ce1f20"},
    SmoothCodecData{
        "1440x1080",
        "000000016742c029da0168089f97ff000900051000003e90000bb800f1832a0000000168ce1f20"},
    SmoothCodecData{
        "1920x1080",
        "000000016742c029da01e0089f97ff001b00141000003e90000bb800f1832a0000000168ce1f20"},
    SmoothCodecData{
        "1920x820",
        "000000016742c029da01e01a7e7ffc00a400a0400000fa40002ee003c60ca80000000168ce1f20"},
};
static_assert(kHardwareCodecData.size() == 15);

constexpr std::array kSoftwareCodecData = {
    SmoothCodecData{"320x240",
                    "000000016742c01eda0507e840000003004000000783c58ba80000000168ce1f20"},
    SmoothCodecData{"430x240",
                    "000000016742c01eda06c7fae10000030001000003001e0f162ea00000000168ce1f20"},
    SmoothCodecData{"560x240",
                    "000000016742c01eda0231fa10000003001000000301e0f162ea0000000168ce1f20"},
    SmoothCodecData{"430x320",
                    "000000016742c01eda06c29eb840000003004000000783c58ba80000000168ce1f20"},
    SmoothCodecData{"560x320",
                    "000000016742c01eda0230a684000003000400000300783c58ba800000000168ce1f20"},
    SmoothCodecData{"750x320",
                    "000000016742c01eda02f0a7ae10000003001000000301e0f162ea0000000168ce1f20"},
    SmoothCodecData{"640x480",
                    "000000016742c01eda0280f684000003000400000300783c58ba800000000168ce1f20"},
    SmoothCodecData{"850x480",
                    "000000016742c01eda0360f788e10000030001000003001e0f162ea00000000168ce1f20"},
    SmoothCodecData{"1120x480",
                    "000000016742c01eda01183da10000030001000003001e0f162ea00000000168ce1f20"},
    SmoothCodecData{"960x720",
                    "000000016742c01eda03c05ba10000030001000003001e0f162ea00000000168ce1f20"},
    SmoothCodecData{"1270x720",
                    "000000016742c01eda014016f9b840000003004000000783c58ba80000000168ce1f20"},
    SmoothCodecData{"1280x540",
                    "000000016742c01eda0140117ee10000030001000003001e0f162ea00000000168ce1f20"},
};
static_assert(kSoftwareCodecData.size() == 12);

template <typename Rows, typename Matches>
auto Find(const Rows& rows, const Matches& matches) -> decltype(rows.begin()) {
  const auto row = std::find_if(rows.begin(), rows.end(), matches);
  return row == rows.end() ? nullptr : row;
}

}  // namespace

int AspectClassOf(double ratio) {
  if (ratio <= 1.33) {
    return 0;
  }
  if (ratio <= 1.77) {
    return ratio - 1.33 <= 0.22 ? 0 : 1;
  }
  if (ratio <= 2.35) {
    return ratio - 1.77 <= 0.29 ? 1 : 2;
  }
  return 2;
}

const SmoothSize* FindSmoothSize(const std::string& requestedHeight, double ratio) {
  const SizeRow* const row =
      Find(kSizes, [&](const SizeRow& one) { return one.requestedHeight == requestedHeight; });
  return row == nullptr ? nullptr : &row->sizes[static_cast<size_t>(AspectClassOf(ratio))];
}

const SmoothProfile* FindSmoothProfile(bool hardware, const std::string& key) {
  const auto matches = [&](const SmoothProfile& one) { return one.key == key; };
  return hardware ? Find(kHardwareProfiles, matches) : Find(kSoftwareProfiles, matches);
}

const char* FindSmoothCodecData(bool hardware, const std::string& size) {
  const auto matches = [&](const SmoothCodecData& one) { return one.size == size; };
  const SmoothCodecData* const row =
      hardware ? Find(kHardwareCodecData, matches) : Find(kSoftwareCodecData, matches);
  return row == nullptr ? nullptr : row->data;
}

}  // namespace LibOrvoQMX
