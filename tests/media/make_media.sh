#!/bin/sh
# Makes the films that the tests play, with Debian's ffmpeg. Usage: make_media.sh FOLDER
#
# The script keeps films that exist. It writes a new film under another name and renames it, so interrupted
# and simultaneous runs leave only complete films. Every picture contains its time: the luma of the 40 pixel
# strip at its top is 16 + 3 per second. The sound is a tone that beeps once a second.
set -eu
folder=$1
mkdir -p "$folder"

# film NAME SECONDS FPS OPTIONS...: encodes the test picture and sound with these options.
film() {
  name=$1 seconds=$2 fps=$3
  shift 3
  [ -e "$folder/$name" ] && return
  temporary="$folder/.$$.$name"
  ffmpeg -nostdin -hide_banner -loglevel error -y \
    -f lavfi -i "testsrc2=s=640x320:r=$fps:d=$seconds" \
    -f lavfi -i "color=black:s=16x8:r=$fps:d=$seconds,format=yuv420p,geq=lum='16+3*T':cb=128:cr=128" \
    -f lavfi -i "sine=f=440:beep_factor=2:r=48000:d=$seconds" \
    -filter_complex "[1:v]scale=640:40:flags=neighbor[strip];[strip][0:v]vstack,setsar=1[v]" \
    -map '[v]' -map 2:a "$@" "$temporary"
  mv "$temporary" "$folder/$name"
}

# derive NAME SOURCE OPTIONS...: makes a film from an existing one.
derive() {
  name=$1 source=$2
  shift 2
  [ -e "$folder/$name" ] && return
  temporary="$folder/.$$.$name"
  ffmpeg -nostdin -hide_banner -loglevel error -y -i "$folder/$source" "$@" "$temporary"
  mv "$temporary" "$folder/$name"
}

# "$@" from here on: pictures that nearly every client plays.
set -- -c:v libx264 -preset ultrafast -pix_fmt yuv420p -g 48
film h264_ac3.mkv 60 24 "$@" -ac 2 -c:a ac3 -b:a 192k
film h264_aac.mp4 60 25 "$@" -ac 2 -c:a aac -b:a 128k
film mpeg4_mp3.avi 30 25 -c:v mpeg4 -q:v 5 -c:a libmp3lame -b:a 128k
film mpeg2_mp2.ts 30 25 -c:v mpeg2video -q:v 5 -g 15 -bf 2 -c:a mp2 -b:a 192k
film vp9_opus.webm 30 24 -c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 500k -c:a libopus
film hevc10_aac.mov 30 24 -c:v libx265 -preset ultrafast -x265-params log-level=error \
  -pix_fmt yuv420p10le -tag:v hvc1 -c:a aac
# A phone's portrait film: coded in landscape, rotated by the container.
derive portrait.mp4 h264_aac.mp4 -c copy -metadata:s:v rotate=90
# The aspect ratios of old television and of the cinema.
derive tv.mkv h264_ac3.mkv -t 20 -vf crop=480:360:0:0 "$@" -c:a copy
derive cinema.mkv h264_ac3.mkv -t 20 -vf crop=640:272:0:0 "$@" -c:a copy
derive no_audio.mkv h264_ac3.mkv -map 0:v -c copy
derive no_video.mka h264_ac3.mkv -map 0:a -c copy
derive two_audio.mkv h264_ac3.mkv -map 0:v -map 0:a -map 0:a -c:v copy -c:a:0 copy -c:a:1 aac \
  -metadata:s:a:0 language=eng -metadata:s:a:1 language=fre
[ -e "$folder/long.mkv" ] || {
  ffmpeg -nostdin -hide_banner -loglevel error -y -stream_loop 4 -i "$folder/h264_ac3.mkv" -c copy \
    "$folder/.$$.long.mkv" && mv "$folder/.$$.long.mkv" "$folder/long.mkv"
}
[ -e "$folder/truncated.mp4" ] || {
  head -c 60000 "$folder/h264_aac.mp4" > "$folder/.$$.t" && mv "$folder/.$$.t" "$folder/truncated.mp4"
}
[ -e "$folder/truncated.mkv" ] || {
  head -c 6000000 "$folder/h264_ac3.mkv" > "$folder/.$$.t" && mv "$folder/.$$.t" "$folder/truncated.mkv"
}
[ -e "$folder/zeros.mkv" ] || {
  head -c 100000 /dev/zero > "$folder/.$$.z" && mv "$folder/.$$.z" "$folder/zeros.mkv"
}
[ -e "$folder/text.mkv" ] || printf 'This is no film.\n' > "$folder/text.mkv"
[ -e "$folder/empty.mkv" ] || : > "$folder/empty.mkv"
# A playlist with the name of a film.
[ -e "$folder/playlist.mkv" ] ||
  printf '#EXTM3U\n#EXT-X-TARGETDURATION:60\n#EXTINF:60,\nh264_aac.mp4\n#EXT-X-ENDLIST\n' > "$folder/playlist.mkv"
[ -e "$folder/script.mkv" ] ||
  printf "ffconcat version 1.0\nfile 'h264_aac.mp4'\n" > "$folder/script.mkv"
