// The library's short codec names.
#include <array>

#include "metadata/video_metadata.h"

namespace LibOrvoQMX {
namespace {

struct CodecName {
  const char* name;
  AVCodecID id;
};

constexpr std::array kCodecNames = {
    CodecName{"ac3", AV_CODEC_ID_AC3},
    CodecName{"mp3", AV_CODEC_ID_MP3},
    CodecName{"mp3adu", AV_CODEC_ID_MP3ADU},
    CodecName{"mp3on4", AV_CODEC_ID_MP3ON4},
    CodecName{"mp2", AV_CODEC_ID_MP2},
    CodecName{"aac", AV_CODEC_ID_AAC},
    CodecName{"aac_latm", AV_CODEC_ID_AAC_LATM},
    CodecName{"vorbis", AV_CODEC_ID_VORBIS},
    CodecName{"wmav1", AV_CODEC_ID_WMAV1},
    CodecName{"wmav2", AV_CODEC_ID_WMAV2},
    CodecName{"wmapro", AV_CODEC_ID_WMAPRO},
    CodecName{"flac", AV_CODEC_ID_FLAC},
    CodecName{"mjpeg", AV_CODEC_ID_MJPEG},
    CodecName{"mpeg4", AV_CODEC_ID_MPEG4},
    CodecName{"h264", AV_CODEC_ID_H264},
    CodecName{"hevc", AV_CODEC_ID_HEVC},
    CodecName{"mpeg2", AV_CODEC_ID_MPEG2VIDEO},
    CodecName{"vc1", AV_CODEC_ID_VC1},
    CodecName{"wmv3", AV_CODEC_ID_WMV3},
    CodecName{"rv40", AV_CODEC_ID_RV40},
    CodecName{"vp9", AV_CODEC_ID_VP9},
    CodecName{"eac3", AV_CODEC_ID_EAC3},
    CodecName{"truehd", AV_CODEC_ID_TRUEHD},
    CodecName{"mp1", AV_CODEC_ID_MP1},
    CodecName{"cook", AV_CODEC_ID_COOK},
    CodecName{"alac", AV_CODEC_ID_ALAC},
    CodecName{"dvaudio", AV_CODEC_ID_DVAUDIO},
    CodecName{"dvvideo", AV_CODEC_ID_DVVIDEO},
    CodecName{"vmdaudio", AV_CODEC_ID_VMDAUDIO},
    CodecName{"amr_nb", AV_CODEC_ID_AMR_NB},
    CodecName{"amr_wb", AV_CODEC_ID_AMR_WB},
    CodecName{"pcm_s16le", AV_CODEC_ID_PCM_S16LE},
    CodecName{"pcm_s16be", AV_CODEC_ID_PCM_S16BE},
    CodecName{"pcm_u16le", AV_CODEC_ID_PCM_U16LE},
    CodecName{"pcm_u16be", AV_CODEC_ID_PCM_U16BE},
    CodecName{"pcm_s8", AV_CODEC_ID_PCM_S8},
    CodecName{"pcm_u8", AV_CODEC_ID_PCM_U8},
    CodecName{"pcm_mulaw", AV_CODEC_ID_PCM_MULAW},
    CodecName{"pcm_alaw", AV_CODEC_ID_PCM_ALAW},
    CodecName{"pcm_s32le", AV_CODEC_ID_PCM_S32LE},
    CodecName{"pcm_s32be", AV_CODEC_ID_PCM_S32BE},
    CodecName{"pcm_u32le", AV_CODEC_ID_PCM_U32LE},
    CodecName{"pcm_u32be", AV_CODEC_ID_PCM_U32BE},
    CodecName{"pcm_s24le", AV_CODEC_ID_PCM_S24LE},
    CodecName{"pcm_s24be", AV_CODEC_ID_PCM_S24BE},
    CodecName{"pcm_u24le", AV_CODEC_ID_PCM_U24LE},
    CodecName{"pcm_u24be", AV_CODEC_ID_PCM_U24BE},
    CodecName{"pcm_s24daud", AV_CODEC_ID_PCM_S24DAUD},
    CodecName{"pcm_zork", AV_CODEC_ID_PCM_ZORK},
    CodecName{"pcm_s16le_planar", AV_CODEC_ID_PCM_S16LE_PLANAR},
    CodecName{"pcm_dvd", AV_CODEC_ID_PCM_DVD},
    CodecName{"pcm_f32be", AV_CODEC_ID_PCM_F32BE},
    CodecName{"pcm_f32le", AV_CODEC_ID_PCM_F32LE},
    CodecName{"pcm_f64be", AV_CODEC_ID_PCM_F64BE},
    CodecName{"pcm_f64le", AV_CODEC_ID_PCM_F64LE},
    CodecName{"pcm_bluray", AV_CODEC_ID_PCM_BLURAY},
    CodecName{"adpcm_ima_qt", AV_CODEC_ID_ADPCM_IMA_QT},
    CodecName{"adpcm_ima_wav", AV_CODEC_ID_ADPCM_IMA_WAV},
    CodecName{"adpcm_ima_dk3", AV_CODEC_ID_ADPCM_IMA_DK3},
    CodecName{"adpcm_ima_dk4", AV_CODEC_ID_ADPCM_IMA_DK4},
    CodecName{"adpcm_ima_ws", AV_CODEC_ID_ADPCM_IMA_WS},
    CodecName{"adpcm_ima_smjpeg", AV_CODEC_ID_ADPCM_IMA_SMJPEG},
    CodecName{"adpcm_ms", AV_CODEC_ID_ADPCM_MS},
    CodecName{"adpcm_4xm", AV_CODEC_ID_ADPCM_4XM},
    CodecName{"adpcm_xa", AV_CODEC_ID_ADPCM_XA},
    CodecName{"adpcm_adx", AV_CODEC_ID_ADPCM_ADX},
    CodecName{"adpcm_ea", AV_CODEC_ID_ADPCM_EA},
    CodecName{"adpcm_g726", AV_CODEC_ID_ADPCM_G726},
    CodecName{"adpcm_ct", AV_CODEC_ID_ADPCM_CT},
    CodecName{"adpcm_swf", AV_CODEC_ID_ADPCM_SWF},
    CodecName{"adpcm_yamaha", AV_CODEC_ID_ADPCM_YAMAHA},
    CodecName{"adpcm_sbpro_4", AV_CODEC_ID_ADPCM_SBPRO_4},
    CodecName{"adpcm_sbpro_3", AV_CODEC_ID_ADPCM_SBPRO_3},
    CodecName{"adpcm_sbpro_2", AV_CODEC_ID_ADPCM_SBPRO_2},
    CodecName{"adpcm_thp", AV_CODEC_ID_ADPCM_THP},
    CodecName{"adpcm_ima_amv", AV_CODEC_ID_ADPCM_IMA_AMV},
    CodecName{"adpcm_ea_r1", AV_CODEC_ID_ADPCM_EA_R1},
    CodecName{"adpcm_ea_r3", AV_CODEC_ID_ADPCM_EA_R3},
    CodecName{"adpcm_ea_r2", AV_CODEC_ID_ADPCM_EA_R2},
    CodecName{"adpcm_ima_ea_sead", AV_CODEC_ID_ADPCM_IMA_EA_SEAD},
    CodecName{"adpcm_ima_ea_eacs", AV_CODEC_ID_ADPCM_IMA_EA_EACS},
    CodecName{"adpcm_ea_xas", AV_CODEC_ID_ADPCM_EA_XAS},
    CodecName{"adpcm_ea_maxis_xa", AV_CODEC_ID_ADPCM_EA_MAXIS_XA},
    CodecName{"adpcm_ima_iss", AV_CODEC_ID_ADPCM_IMA_ISS},
    CodecName{"flv1", AV_CODEC_ID_FLV1},
    CodecName{"mpeg1video", AV_CODEC_ID_MPEG1VIDEO},
    CodecName{"subrip", AV_CODEC_ID_SUBRIP},
    CodecName{"ssa", AV_CODEC_ID_SSA},
    CodecName{"ass", AV_CODEC_ID_ASS},
    CodecName{"hdmv_pgs_subtitle", AV_CODEC_ID_HDMV_PGS_SUBTITLE},
    CodecName{"dvd_subtitle", AV_CODEC_ID_DVD_SUBTITLE},
    CodecName{"mov_text", AV_CODEC_ID_MOV_TEXT},
};
static_assert(kCodecNames.size() == 92);

}  // namespace

std::string GetCodecName(AVCodecID id) {
  if (static_cast<int>(id) < 0) {
    return "";
  }
  if (id == AV_CODEC_ID_DTS) {
    return "dts";
  }
  for (const CodecName& row : kCodecNames) {
    if (row.id == id) {
      return row.name;
    }
  }
  return "";
}

}  // namespace LibOrvoQMX
