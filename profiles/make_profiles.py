#!/usr/bin/env python3
"""Writes the transcoding profiles. Usage: make_profiles.py FOLDER

Each file NAME_LEVEL.json is one JSON object: profile keys to FFmpeg arguments, separated by single
blanks and without quoting. A key carries its rates in kbit/s as parts "vb..." and "ab...", from which
the size of the whole stream is predicted; a remux has no rate to promise and so no such parts.
"""
import collections
import json
import pathlib
import sys

Rendition = collections.namedtuple("Rendition", "name height size video audio")
Machine = collections.namedtuple("Machine", "preset tallest encoder variants", defaults=("libx264", ()))

# The sizes are the names that the library knows and fits to the film.
RENDITIONS = [
    Rendition("240p", 240, "320x240", 300, 96),
    Rendition("360p", 360, "480x360", 700, 96),
    Rendition("480p", 480, "hd480", 1200, 128),
    Rendition("720p", 720, "hd720", 2500, 128),
    Rendition("1080p", 1080, "hd1080", 5000, 192),
]

# A machine's processor decides how hard its encoder may try, and up to which height it keeps up with
# playing. Hardware encoders carry a preset for the day they are missing. A variant is a second set of
# keys with its own encoder, named after it.
WEAK = Machine("ultrafast", 480)
MACHINES = {
    "x86_1": WEAK,
    "x86_2": Machine("veryfast", 1080),
    "cedarview_1": WEAK,
    "cedarview_2": WEAK,
    "bromolow_1": Machine("superfast", 720),
    "bromolow_2": Machine("veryfast", 1080),
    "avoton_1": WEAK,
    "avoton_2": Machine("superfast", 720),
    "evansport_1": Machine("ultrafast", 1080, "h264_smd"),
    "evansport_2": Machine("ultrafast", 1080, "h264_smd"),
    "braswell_1": Machine("superfast", 1080, variants=(("vaapi", "h264_vaapi"),)),
    "braswell_2": Machine("superfast", 1080, variants=(("vaapi", "h264_vaapi"),)),
    "monaco_2": WEAK,
}

# Nothing but picture and sound: subtitles and chapters would become tracks that delay the start.
COMMON = "-sn -dn -map_chapters -1 -max_muxing_queue_size 4096"

# Gaps in the sound are filled, so that it stays in step.
SOUND = "-acodec {encoder} -ab {rate}k -ar 48000 -ac 2 -af aresample=async=1"

# Only pictures marked as interlaced are touched, and none is shown twice to fill a frame rate up. A
# buffer of one second keeps the rate's promise, and key frames by the clock hold for any frame rate.
# B-frames would make the picture start later than the sound.
H264 = (
    "-vcodec {encoder} -preset {preset} -pix_fmt yuv420p -fps_mode vfr{clock}"
    " -vf yadif=deint=interlaced -s {size}"
    " -vb {rate}k -maxrate {rate}k -bufsize {rate}k -bf 0 -g 250"
    " -force_key_frames expr:gte(t,n_forced*2)"
)
# A clock that ticks once a picture moves pictures by up to half of one from their sound. Other encoders
# take the tick for the frame rate when they share out their bits, and must keep it.
FINE_CLOCKS = {"libx264": " -enc_time_base:v 1:90000"}
WMV = (
    "-vcodec wmv2 -pix_fmt yuv420p -fpsmax 30 -vf yadif=deint=interlaced -s {size}"
    " -vb {rate}k -maxrate {rate}k -bufsize {rate}k -g 50"
)
COPY = "-vcodec copy -bsf:v h264_mp4toannexb"

# Fragments of half a second, because a browser shows nothing of one that is not complete. The header
# waits for the first packets: written before, it could not say how far the encoder delays the sound.
MP4 = (
    "-movflags frag_keyframe+delay_moov+default_base_moof -frag_duration 500000 -write_tmcd 0 -f mp4"
)
MPEGTS = "-f mpegts"
# Transport packets are filled up per picture; that comes out of the picture's promised rate.
MPEGTS_PICTURE_SHARE = 0.9
ASF = "-f asf"
# A player that seeks waits for a whole segment, and the preset decides for how long: this one takes two
# thirds of the time of the next better one. Where segments start, the transcoder says.
SEGMENT_PRESET = "superfast"
SEGMENT_PRESETS = {"ultrafast": "ultrafast"}
SEGMENT_H264 = (
    "-vcodec {encoder} -preset {preset} -pix_fmt yuv420p -fps_mode vfr"
    " -vf yadif=deint=interlaced -s {size}"
    " -vb {rate}k -maxrate {rate}k -bufsize {rate}k -bf 0 -g 300"
)
SEGMENT_SOUND = "-acodec {encoder} -ab {rate}k -ac 2"
# Beside copied pictures sound is most of the work, and at a high rate the quicker search does.
FAST_SOUND = "-aac_coder fast"
REMUX_SOUND_RATE = 192

# A stream that a browser plays as it comes. The library copies AAC and MP3 into it, which WebM cannot
# hold and its parent format can; browsers take that under the same name. Clusters are written when they are
# complete, and the first picture waits for the first one.
LIVE_MATROSKA = "-live 1 -cluster_time_limit 250 -flush_packets 1 -f matroska"
# One thread for VP8: with two they spin while they wait for each other, six times the work in all and
# slower for it. A negative speed is a fixed one; others follow the machine's load. Their clock ticks once
# a picture, because they take the tick for the frame rate.
VP8 = "-vcodec libvpx -deadline realtime -cpu-used -6 -threads 1"
VP9 = "-vcodec libvpx-vp9 -deadline realtime -cpu-used 7 -row-mt 1 -tile-columns 2 -threads 2"
WEBM_ENCODERS = (("", VP8), ("vp9_", VP9))
WEBM = (
    "{encoder} -pix_fmt yuv420p -fps_mode vfr -vf yadif=deint=interlaced -s {size}"
    " -lag-in-frames 0 -auto-alt-ref 0 -vb {rate}k -maxrate {rate}k -bufsize {rate}k -g 250"
    " -force_key_frames expr:gte(t,n_forced*2)"
)
WEBM_TALLEST = 720

# Fragments: a manifest states their sizes, rates and H.264 parameter sets before there are any, so the rows
# are fixed. With a quality and a highest rate instead of a rate the encoder writes the very sets of the
# software rows; those of the hardware rows are another encoder's, and each key frame carries its own in any
# case. The pictures' rate is the film's, although the names of the software rows say 15.
Fragments = collections.namedtuple("Fragments", "name height video audio")
FRAGMENTS = [
    Fragments("240p_{}_vb200_{}aac_ab40", 240, 200, 40),
    Fragments("240p_{}_vb320_{}aac_ab40", 240, 320, 40),
    Fragments("320p_{}_vb500_{}aac_ab64", 320, 500, 64),
    Fragments("320p_{}_vb720_{}aac_ab64", 320, 720, 64),
    Fragments("hd480_{}_vb1000_{}aac_ab96", 480, 1000, 96),
    Fragments("hd720_{}_vb1500_{}aac_ab128", 720, 1500, 128),
]
HARDWARE_FRAGMENTS = FRAGMENTS + [Fragments("hd1080_{}_vb4500_{}aac_ab128", 1080, 4500, 128)]
FragmentKind = collections.namedtuple("FragmentKind", "encoder word pictures level rows")
HARDWARE_ENCODER = "h264_smd"
SOFTWARE_KIND = FragmentKind("libx264", "x264", "vf15_", "3.0", FRAGMENTS)
HARDWARE_KIND = FragmentKind(HARDWARE_ENCODER, HARDWARE_ENCODER, "", "4.1", HARDWARE_FRAGMENTS)
FRAGMENT = (
    "-vcodec {encoder} -preset {preset} -profile:v baseline -level {level} -refs 1 -bf 0"
    " -pix_fmt yuv420p -fps_mode vfr -vf yadif=deint=interlaced -s {size}"
    " -vb {video} -crf 25 -maxrate {video} -bufsize {video} -g 300"
    " -bsf:v h264_metadata=tick_rate=30/1:fixed_frame_rate_flag=0"
    " -acodec aac -ab {audio} -ar 48000 -ac 2"
)


def sound(rate, encoder="aac"):
    return SOUND.format(encoder=encoder, rate=rate)


def picture(template, rendition, share=1, **more):
    return template.format(size=rendition.size, rate=round(rendition.video * share), **more)


def arguments(*parts):
    return " ".join((COMMON,) + parts)


def rates(rendition):
    return f"vb{rendition.video}_ab{rendition.audio}"


def transcodes(machine, encoder, infix):
    """The keys and arguments of the fragmented MP4 and MPEG-TS renditions with one encoder."""
    for rendition in RENDITIONS:
        if rendition.height > machine.tallest:
            continue
        for kind, container, share in (("mp4", MP4, 1), ("ts", MPEGTS, MPEGTS_PICTURE_SHARE)):
            video = picture(H264, rendition, share, encoder=encoder, preset=machine.preset,
                            clock=FINE_CLOCKS.get(encoder, ""))
            key = f"http_{kind}_{rendition.name}_{infix}{rates(rendition)}"
            yield key, arguments(video, sound(rendition.audio), container)


def segment_sound(rate):
    return SEGMENT_SOUND.format(encoder="aac", rate=rate)


def remux_sound():
    return " ".join((segment_sound(REMUX_SOUND_RATE), FAST_SOUND))


def segments(machine, encoder, infix):
    """The keys and arguments of the renditions that are cut into segments."""
    preset = SEGMENT_PRESETS.get(machine.preset, SEGMENT_PRESET)
    for rendition in RENDITIONS:
        if rendition.height <= machine.tallest:
            video = picture(SEGMENT_H264, rendition, MPEGTS_PICTURE_SHARE, encoder=encoder,
                            preset=preset)
            yield (f"hls_{rendition.name}_{infix}{rates(rendition)}",
                   arguments(video, segment_sound(rendition.audio)))


def windows_media():
    rendition = next(r for r in RENDITIONS if r.name == "480p")
    value = arguments(picture(WMV, rendition), sound(rendition.audio, "wmav2"), ASF)
    yield f"http_wmv_{rendition.name}_{rates(rendition)}", value


def remuxes():
    for kind, container in (("mp4", MP4), ("ts", MPEGTS)):
        yield f"http_{kind}_remux", arguments(COPY, sound(REMUX_SOUND_RATE), container)
    yield "hls_remux", arguments(COPY, remux_sound())


def live_webm(machine):
    for rendition in RENDITIONS:
        if rendition.height <= min(machine.tallest, WEBM_TALLEST):
            for infix, encoder in WEBM_ENCODERS:
                yield (f"webm_{infix}{rendition.name}_{rates(rendition)}",
                       arguments(picture(WEBM, rendition, encoder=encoder),
                                 sound(rendition.audio, "libmp3lame"), LIVE_MATROSKA))


def fragments(machine):
    """The keys are the manifests'; the library puts the width beside the height."""
    kind = HARDWARE_KIND if machine.encoder == HARDWARE_ENCODER else SOFTWARE_KIND
    preset = SEGMENT_PRESETS.get(machine.preset, SEGMENT_PRESET)
    for row in kind.rows:
        if row.height <= machine.tallest:
            value = FRAGMENT.format(encoder=kind.encoder, preset=preset, level=kind.level,
                                    size=row.height, video=row.video * 1000, audio=row.audio * 1000)
            yield "smoothstreaming_" + row.name.format(kind.word, kind.pictures), arguments(value)


def profiles(machine):
    result = {}
    for name, encoder in (("", machine.encoder), *machine.variants):
        infix = f"{name}_" if name else ""
        result.update(transcodes(machine, encoder, infix))
        result.update(segments(machine, encoder, infix))
    result.update(live_webm(machine))
    result.update(fragments(machine))
    result.update(windows_media())
    result.update(remuxes())
    return result


def main(folder):
    for name, machine in MACHINES.items():
        text = json.dumps(profiles(machine), indent=2) + "\n"
        pathlib.Path(folder, f"{name}.json").write_text(text, encoding="ascii")


if __name__ == "__main__":
    main(sys.argv[1])
