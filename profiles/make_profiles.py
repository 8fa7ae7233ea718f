#!/usr/bin/env python3
"""Writes the transcoding profiles. Usage: make_profiles.py FOLDER

Each file NAME_LEVEL.json is one JSON object that maps profile keys to FFmpeg arguments. Single blanks
separate the arguments; there is no quoting. A key contains its rates in kbit/s as parts "vb..." and
"ab..."; the library predicts the size of the stream from them. A remux has no fixed rate and no such parts.
"""
import collections
import json
import pathlib
import sys

Rendition = collections.namedtuple("Rendition", "name height size video audio")
Machine = collections.namedtuple("Machine", "preset tallest encoder variants wrapper",
                                 defaults=("libx264", (), None))

# The library knows these names of sizes and adapts them to the film.
RENDITIONS = [
    Rendition("240p", 240, "320x240", 300, 96),
    Rendition("360p", 360, "480x360", 700, 96),
    Rendition("480p", 480, "hd480", 1200, 128),
    Rendition("720p", 720, "hd720", 2500, 128),
    Rendition("1080p", 1080, "hd1080", 5000, 192),
]

# The processor determines the preset of the encoder and the greatest height that it encodes in real time.
# Hardware encoders have a preset too, for the software encoder that replaces a missing one. A variant is a
# second set of keys with its own encoder, whose name is part of the keys. The wrapper is the greatest height
# that GStreamer encodes on the machine's engines.
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
    "braswell_1": Machine("superfast", 1080, variants=(("vaapi", "h264_vaapi"),), wrapper=1080),
    "braswell_2": Machine("superfast", 1080, variants=(("vaapi", "h264_vaapi"),), wrapper=1080),
    "monaco_2": WEAK._replace(wrapper=1080),
}

# Only video and audio: subtitles and chapters would become tracks that delay the start.
COMMON = "-sn -dn -map_chapters -1 -max_muxing_queue_size 4096"

# Fills gaps in the sound, so that it stays in sync.
SOUND = "-acodec {encoder} -ab {rate}k -ar 48000 -ac 2 -af aresample=async=1"

# Deinterlaces only pictures that are marked as interlaced, and repeats no picture to reach a frame rate. A
# buffer of one second keeps the stated rate. Key frames at fixed times suit every frame rate. B-frames
# would make the video start later than the sound.
H264 = (
    "-vcodec {encoder} -preset {preset} -pix_fmt yuv420p -fps_mode vfr{clock}"
    " -vf yadif=deint=interlaced -s {size}"
    " -vb {rate}k -maxrate {rate}k -bufsize {rate}k -bf 0 -g 250"
    " -force_key_frames expr:gte(t,n_forced*2)"
)
# With a clock of one tick per picture, a picture can be up to half a picture off its sound. Other encoders
# use the tick as the frame rate for their rate control, so they keep it.
FINE_CLOCKS = {"libx264": " -enc_time_base:v 1:90000"}
WMV = (
    "-vcodec wmv2 -pix_fmt yuv420p -fpsmax 30 -vf yadif=deint=interlaced -s {size}"
    " -vb {rate}k -maxrate {rate}k -bufsize {rate}k -g 50"
)
COPY = "-vcodec copy -bsf:v h264_mp4toannexb"

# Fragments of half a second, because a browser shows only complete fragments. The header is written after
# the first packets: before them, the encoder's delay of the sound is unknown.
MP4 = (
    "-movflags frag_keyframe+delay_moov+default_base_moof -frag_duration 500000 -write_tmcd 0 -f mp4"
)
MPEGTS = "-f mpegts"
# Padding of transport packets takes a part of the video's stated rate.
MPEGTS_PICTURE_SHARE = 0.9
ASF = "-f asf"
# After a seek the player waits for a whole segment, and the preset determines how long: this one takes two
# thirds of the time of the next better one. The transcoder adds the key frames at which segments start.
SEGMENT_PRESET = "superfast"
SEGMENT_PRESETS = {"ultrafast": "ultrafast"}
SEGMENT_H264 = (
    "-vcodec {encoder} -preset {preset} -pix_fmt yuv420p -fps_mode vfr"
    " -vf yadif=deint=interlaced -s {size}"
    " -vb {rate}k -maxrate {rate}k -bufsize {rate}k -bf 0 -g 300"
)
SEGMENT_SOUND = "-acodec {encoder} -ab {rate}k -ac 2"
# With copied video, sound is most of the work. At a high rate the faster search is good enough.
FAST_SOUND = "-aac_coder fast"
REMUX_SOUND_RATE = 192

# For the GStreamer wrapper. The library may add a codec of the sound behind these; the last one counts.
WRAPPER = "--vcodec h264 --vb {rate}k --ab {sound}k --size {box} --mux {container} --acodec aac"

# A live stream for browsers. The library copies AAC and MP3 sound, which Matroska can hold and WebM cannot;
# browsers accept Matroska as WebM. A cluster is written when it is complete, so short clusters make the first
# picture appear early.
LIVE_MATROSKA = "-live 1 -cluster_time_limit 250 -flush_packets 1 -f matroska"
# One thread for VP8: two threads spin while they wait for each other, which takes six times the processor
# time and is slower. A negative speed is fixed; other speeds depend on the machine's load. The clock ticks
# once per picture, because these encoders use the tick as the frame rate.
VP8 = "-vcodec libvpx -deadline realtime -cpu-used -6 -threads 1"
VP9 = "-vcodec libvpx-vp9 -deadline realtime -cpu-used 7 -row-mt 1 -tile-columns 2 -threads 2"
WEBM_ENCODERS = (("", VP8), ("vp9_", VP9))
WEBM = (
    "{encoder} -pix_fmt yuv420p -fps_mode vfr -vf yadif=deint=interlaced -s {size}"
    " -lag-in-frames 0 -auto-alt-ref 0 -vb {rate}k -maxrate {rate}k -bufsize {rate}k -g 250"
    " -force_key_frames expr:gte(t,n_forced*2)"
)
WEBM_TALLEST = 720

# Fragments: the manifest states their sizes, rates and H.264 parameter sets before they exist, so the rows are
# fixed. With a quality and a maximum rate instead of a rate, the encoder writes exactly the parameter sets of
# the software rows. The sets of the hardware rows come from another encoder; each key frame carries its own
# sets anyway. The frame rate is the film's, although the names of the software rows contain 15.
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


def box(rendition):
    """A size that the picture fits into, with the names of the library resolved."""
    widths = {"hd480": 852, "hd720": 1280, "hd1080": 1920}
    return f"{widths[rendition.size]}x{rendition.height}" if rendition.size in widths else rendition.size


def wrapped(machine):
    """The keys and arguments of the renditions that GStreamer makes."""
    for rendition in RENDITIONS:
        if rendition.height > (machine.wrapper or 0):
            continue
        for kind, container, share in (("http_mp4", "mp4", 1), ("http_ts", "mpegts", MPEGTS_PICTURE_SHARE),
                                       ("hls", "mpegts", MPEGTS_PICTURE_SHARE)):
            yield (f"{kind}_{rendition.name}_gst_{rates(rendition)}",
                   picture(WRAPPER, rendition, share, sound=rendition.audio, box=box(rendition),
                           container=container))


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
    """The keys are those of the manifests. The library adds the width to the height."""
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
    result.update(wrapped(machine))
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
