// The container formats that hold a film by themselves.
#pragma once

namespace orvo {

// FFmpeg's names of the demuxers that read one file and nothing else. Playlists, scripts and
// session descriptions are left out on purpose: a text file named film.mkv must not make a probe or
// a transcoder, which run with more rights than the viewer, open what it names.
inline constexpr char kSelfContainedFormats[] =
    "3dostr,4xm,aa,aac,aax,ac3,acm,aiff,alp,amr,amrnb,amrwb,ape,apm,apng,aptx,aptx_hd,asf,asf_o,"
    "ast,"
    "au,av1,avi,avr,avs,avs2,avs3,bethsoftvid,bfi,bink,binka,bit,c93,caf,cavsvideo,cdg,cdxl,cine,"
    "codec2,dcstr,derf,dfa,dhav,dirac,dnxhd,dsf,dsicin,dss,dts,dtshd,dv,dxa,ea,ea_cdata,eac3,film_"
    "cpk,"
    "filmstrip,fits,flac,flic,flv,fsb,g722,g723_1,g726,g726le,g729,gdv,gif,gsm,gxf,h261,h263,h264,"
    "hca,hcom,"
    "hevc,hnm,iff,ilbc,ipmovie,ircam,iss,iv8,ivf,ivr,jv,kux,kvag,lmlm4,loas,lvf,lxf,m4v,matroska,"
    "mgsts,mjpeg,mjpeg_2000,mlp,mm,mmf,mods,moflex,mov,mp3,mpc,mpc8,mpeg,mpegts,mpegtsraw,"
    "mpegvideo,"
    "msf,msnwctcp,mtaf,mtv,mv,mvi,mxf,mxg,nc,nistsphere,nsp,nsv,nut,nuv,obu,ogg,oma,paf,"
    "pmp,psxstr,pva,pvf,qcp,r3d,rl2,rm,roq,rpl,rsd,rso,s337m,sbc,scd,sdr2,sds,sdx,shn,siff,"
    "simbiosis_imx,"
    "smjpeg,smk,smush,sol,sox,spdif,svag,svs,swf,tak,thp,tiertexseq,tmv,truehd,tta,ty,vag,vc1,"
    "vc1test,"
    "vivo,vmd,voc,vpk,vqf,w64,wav,wc3movie,wsaud,wsd,wsvqa,wtv,wv,wve,xa,xbin,xmv,xvag,xwma,yop,"
    "yuv4mpegpipe";

}  // namespace orvo
