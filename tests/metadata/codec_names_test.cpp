#include <gtest/gtest.h>

#include "metadata/video_metadata.h"

namespace {

using LibOrvoQMX::GetCodecName;

struct NamedCodec {
  const char* name;
  AVCodecID id;
};

#define CODEC(name, constant) \
  { #name, AV_CODEC_ID_##constant }
constexpr NamedCodec kCodecs[] = {
    CODEC(ac3, AC3),
    CODEC(mp3, MP3),
    CODEC(mp3adu, MP3ADU),
    CODEC(mp3on4, MP3ON4),
    CODEC(mp2, MP2),
    CODEC(aac, AAC),
    CODEC(aac_latm, AAC_LATM),
    CODEC(vorbis, VORBIS),
    CODEC(wmav1, WMAV1),
    CODEC(wmav2, WMAV2),
    CODEC(wmapro, WMAPRO),
    CODEC(flac, FLAC),
    CODEC(mjpeg, MJPEG),
    CODEC(mpeg4, MPEG4),
    CODEC(h264, H264),
    CODEC(hevc, HEVC),
    CODEC(mpeg2, MPEG2VIDEO),
    CODEC(vc1, VC1),
    CODEC(wmv3, WMV3),
    CODEC(rv40, RV40),
    CODEC(vp9, VP9),
    CODEC(eac3, EAC3),
    CODEC(truehd, TRUEHD),
    CODEC(mp1, MP1),
    CODEC(cook, COOK),
    CODEC(alac, ALAC),
    CODEC(dvaudio, DVAUDIO),
    CODEC(dvvideo, DVVIDEO),
    CODEC(vmdaudio, VMDAUDIO),
    CODEC(amr_nb, AMR_NB),
    CODEC(amr_wb, AMR_WB),
    CODEC(pcm_s16le, PCM_S16LE),
    CODEC(pcm_s16be, PCM_S16BE),
    CODEC(pcm_u16le, PCM_U16LE),
    CODEC(pcm_u16be, PCM_U16BE),
    CODEC(pcm_s8, PCM_S8),
    CODEC(pcm_u8, PCM_U8),
    CODEC(pcm_mulaw, PCM_MULAW),
    CODEC(pcm_alaw, PCM_ALAW),
    CODEC(pcm_s32le, PCM_S32LE),
    CODEC(pcm_s32be, PCM_S32BE),
    CODEC(pcm_u32le, PCM_U32LE),
    CODEC(pcm_u32be, PCM_U32BE),
    CODEC(pcm_s24le, PCM_S24LE),
    CODEC(pcm_s24be, PCM_S24BE),
    CODEC(pcm_u24le, PCM_U24LE),
    CODEC(pcm_u24be, PCM_U24BE),
    CODEC(pcm_s24daud, PCM_S24DAUD),
    CODEC(pcm_zork, PCM_ZORK),
    CODEC(pcm_s16le_planar, PCM_S16LE_PLANAR),
    CODEC(pcm_dvd, PCM_DVD),
    CODEC(pcm_f32be, PCM_F32BE),
    CODEC(pcm_f32le, PCM_F32LE),
    CODEC(pcm_f64be, PCM_F64BE),
    CODEC(pcm_f64le, PCM_F64LE),
    CODEC(pcm_bluray, PCM_BLURAY),
    CODEC(adpcm_ima_qt, ADPCM_IMA_QT),
    CODEC(adpcm_ima_wav, ADPCM_IMA_WAV),
    CODEC(adpcm_ima_dk3, ADPCM_IMA_DK3),
    CODEC(adpcm_ima_dk4, ADPCM_IMA_DK4),
    CODEC(adpcm_ima_ws, ADPCM_IMA_WS),
    CODEC(adpcm_ima_smjpeg, ADPCM_IMA_SMJPEG),
    CODEC(adpcm_ms, ADPCM_MS),
    CODEC(adpcm_4xm, ADPCM_4XM),
    CODEC(adpcm_xa, ADPCM_XA),
    CODEC(adpcm_adx, ADPCM_ADX),
    CODEC(adpcm_ea, ADPCM_EA),
    CODEC(adpcm_g726, ADPCM_G726),
    CODEC(adpcm_ct, ADPCM_CT),
    CODEC(adpcm_swf, ADPCM_SWF),
    CODEC(adpcm_yamaha, ADPCM_YAMAHA),
    CODEC(adpcm_sbpro_4, ADPCM_SBPRO_4),
    CODEC(adpcm_sbpro_3, ADPCM_SBPRO_3),
    CODEC(adpcm_sbpro_2, ADPCM_SBPRO_2),
    CODEC(adpcm_thp, ADPCM_THP),
    CODEC(adpcm_ima_amv, ADPCM_IMA_AMV),
    CODEC(adpcm_ea_r1, ADPCM_EA_R1),
    CODEC(adpcm_ea_r3, ADPCM_EA_R3),
    CODEC(adpcm_ea_r2, ADPCM_EA_R2),
    CODEC(adpcm_ima_ea_sead, ADPCM_IMA_EA_SEAD),
    CODEC(adpcm_ima_ea_eacs, ADPCM_IMA_EA_EACS),
    CODEC(adpcm_ea_xas, ADPCM_EA_XAS),
    CODEC(adpcm_ea_maxis_xa, ADPCM_EA_MAXIS_XA),
    CODEC(adpcm_ima_iss, ADPCM_IMA_ISS),
    CODEC(flv1, FLV1),
    CODEC(mpeg1video, MPEG1VIDEO),
    CODEC(subrip, SUBRIP),
    CODEC(ssa, SSA),
    CODEC(ass, ASS),
    CODEC(hdmv_pgs_subtitle, HDMV_PGS_SUBTITLE),
    CODEC(dvd_subtitle, DVD_SUBTITLE),
    CODEC(mov_text, MOV_TEXT),
};
#undef CODEC
static_assert(std::size(kCodecs) == 92);

TEST(CodecNames, AreTheNamesThatTheLibraryCompares) {
  for (const NamedCodec& codec : kCodecs) {
    EXPECT_EQ(GetCodecName(codec.id), codec.name);
  }
  EXPECT_EQ(GetCodecName(AV_CODEC_ID_DTS), "dts");
}

TEST(CodecNames, AreNoOthers) {
  int named = 0;
  for (int id = -2; id < 0x20000; ++id) {
    named += GetCodecName(static_cast<AVCodecID>(id)).empty() ? 0 : 1;
  }
  EXPECT_EQ(named, 93);
}

TEST(CodecNames, AreEmptyForUnknownCodecs) {
  for (const AVCodecID id :
       {AV_CODEC_ID_NONE, AV_CODEC_ID_VP8, AV_CODEC_ID_THEORA, AV_CODEC_ID_MSMPEG4V3,
        AV_CODEC_ID_OPUS, AV_CODEC_ID_WMV1, AV_CODEC_ID_WMV2, AV_CODEC_ID_H263, AV_CODEC_ID_AV1}) {
    EXPECT_EQ(GetCodecName(id), "") << id;
  }
  EXPECT_EQ(GetCodecName(static_cast<AVCodecID>(-1)), "");
}

}  // namespace
