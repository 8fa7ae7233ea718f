// The container formats that hold a film by themselves.
#pragma once

#include <string>

namespace orvo {

// FFmpeg's demuxers that read one file and nothing else, by the first name of each. Playlists,
// scripts and session descriptions are left out on purpose. A probe or a transcoder has more rights
// than the viewer, so a text file named film.mkv must not make it open other files.
// media_formats_test.cpp gives the reason for each of FFmpeg's other demuxers. clang-format off
inline constexpr char kSelfContainedFormats[] =
    "3dostr,4xm,aa,aac,aax,ac3,ace,acm,act,adf,adp,ads,adx,aea,afc,aiff,aix,"
    "alaw,alias_pix,alp,amr,amrnb,amrwb,anm,apc,ape,apm,apng,aptx,aptx_hd,aqtitle,"
    "argo_asf,argo_brp,argo_cvg,asf,asf_o,ass,ast,au,av1,avi,avr,avs,avs2,avs3,"
    "bethsoftvid,bfi,bfstm,bin,bink,binka,bit,bitpacked,bmp_pipe,bmv,boa,"
    "brender_pix,brstm,c93,caf,cavsvideo,cdg,cdxl,cine,codec2,codec2raw,cri_pipe,"
    "data,daud,dcstr,dds_pipe,derf,dfa,dfpwm,dhav,dirac,dnxhd,dpx_pipe,dsf,dsicin,"
    "dss,dts,dtshd,dv,dvbsub,dvbtxt,dxa,ea,ea_cdata,eac3,epaf,exr_pipe,f32be,"
    "f32le,f64be,f64le,film_cpk,filmstrip,fits,flac,flic,flv,frm,fsb,fwse,g722,"
    "g723_1,g726,g726le,g729,gdv,gem_pipe,genh,gif,gif_pipe,gsm,gxf,h261,h263,"
    "h264,hca,hcom,hevc,hnm,ico,idcin,idf,iff,ifv,ilbc,image2pipe,ingenient,"
    "ipmovie,ipu,ircam,iss,iv8,ivf,ivr,j2k_pipe,jacosub,jpeg_pipe,jpegls_pipe,"
    "jpegxl_pipe,jv,kux,kvag,libgme,libopenmpt,live_flv,lmlm4,loas,lrc,luodat,lvf,"
    "lxf,m4v,matroska,mca,mcc,mgsts,microdvd,mjpeg,mjpeg_2000,mlp,mm,mmf,mods,"
    "moflex,mov,mp3,mpc,mpc8,mpeg,mpegts,mpegtsraw,mpegvideo,mpjpeg,mpl2,mpsub,msf,"
    "msnwctcp,msp,mtaf,mtv,mulaw,musx,mv,mvi,mxf,mxg,nc,nistsphere,nsp,nsv,nut,"
    "nuv,obu,ogg,oma,paf,pam_pipe,pbm_pipe,pcx_pipe,pfm_pipe,pgm_pipe,pgmyuv_pipe,"
    "pgx_pipe,phm_pipe,photocd_pipe,pictor_pipe,pjs,pmp,png_pipe,pp_bnk,ppm_pipe,"
    "psd_pipe,psxstr,pva,pvf,qcp,qdraw_pipe,qoi_pipe,r3d,rawvideo,realtext,redspark,"
    "rl2,rm,roq,rpl,rsd,rso,s16be,s16le,s24be,s24le,s32be,s32le,s337m,s8,sami,"
    "sbc,scc,scd,sdr2,sds,sdx,ser,sga,sgi_pipe,shn,siff,simbiosis_imx,sln,smjpeg,"
    "smk,smush,sol,sox,spdif,srt,stl,subviewer,subviewer1,sunrast_pipe,sup,svag,"
    "svg_pipe,svs,swf,tak,tedcaptions,thp,tiertexseq,tiff_pipe,tmv,truehd,tta,tty,"
    "txd,ty,u16be,u16le,u24be,u24le,u32be,u32le,u8,v210,v210x,vag,vbn_pipe,vc1,"
    "vc1test,vidc,vividas,vivo,vmd,voc,vpk,vplayer,vqf,w64,wav,wc3movie,webp_pipe,"
    "webvtt,wsaud,wsd,wsvqa,wtv,wv,wve,xa,xbin,xbm_pipe,xmv,xpm_pipe,xvag,"
    "xwd_pipe,xwma,yop,yuv4mpegpipe";
// clang-format on

// The name that FFmpeg's "-f" takes for the demuxer that a probe names, such as
// "mov,mp4,m4a,3gp,3g2,mj2".
inline std::string DemuxerOf(const std::string& container) {
  return container.substr(0, container.find(','));
}

}  // namespace orvo
