"""A film of each codec and container that the platforms' rules tell apart, as far as FFmpeg can make it."""
import collections
import subprocess

SECONDS = 6
RATE = 25
SIZE = (320, 240)

X264 = ("-c:v", "libx264", "-preset", "ultrafast", "-g", "48")
X265 = ("-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none:keyint=48")
MPEG4 = ("-c:v", "mpeg4", "-q:v", "4", "-bf", "2")
MP3 = ("-c:a", "libmp3lame")

Source = collections.namedtuple("Source", "name file options")

SOURCES = [
    Source("H.264", "h264.mkv", (*X264, "-pix_fmt", "yuv420p", "-c:a", "aac")),
    Source("H.264, ten bits", "h264_10.mkv", (*X264, "-pix_fmt", "yuv420p10le", "-c:a", "aac")),
    Source("HEVC Main", "hevc.mp4", (*X265, "-pix_fmt", "yuv420p", "-tag:v", "hvc1", "-c:a", "aac")),
    Source("HEVC Main 10", "hevc_10.mkv", (*X265, "-pix_fmt", "yuv420p10le", "-c:a", "ac3")),
    Source("VP8", "vp8.webm", ("-c:v", "libvpx", "-deadline", "realtime", "-c:a", "libvorbis")),
    Source("VP9", "vp9.webm", ("-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-c:a", "libopus")),
    Source("AV1", "av1.mkv", ("-c:v", "libsvtav1", "-preset", "12", "-c:a", "libopus")),
    Source("MPEG-2", "mpeg2.ts", ("-c:v", "mpeg2video", "-q:v", "4", "-bf", "2", "-c:a", "mp2")),
    Source("MPEG-4 ASP, Xvid", "xvid.avi", (*MPEG4, "-vtag", "XVID", *MP3)),
    Source("MPEG-4 ASP, DivX", "divx.avi", (*MPEG4, "-vtag", "DIVX", *MP3)),
    Source("MS-MPEG-4", "msmpeg4.avi", ("-c:v", "msmpeg4", "-q:v", "4", *MP3)),
    Source("WMV 7", "wmv1.wmv", ("-c:v", "wmv1", "-q:v", "4", "-c:a", "wmav1")),
    Source("WMV 8", "wmv2.wmv", ("-c:v", "wmv2", "-q:v", "4", "-c:a", "wmav2")),
    Source("FLV", "flv1.flv", ("-c:v", "flv", "-q:v", "4", "-ar", "44100", *MP3)),
    Source("SWF", "flv1.swf", ("-c:v", "flv", "-q:v", "4", "-ar", "44100", *MP3)),
    Source("RealVideo 1", "rv10.rm", ("-c:v", "rv10", "-q:v", "4", "-c:a", "ac3")),
    Source("RealVideo 2", "rv20.rm", ("-c:v", "rv20", "-q:v", "4", "-c:a", "ac3")),
    Source("Theora", "theora.ogv", ("-c:v", "libtheora", "-q:v", "5", "-c:a", "libvorbis")),
]


def make(source, folder):
    path = folder / source.file
    width, height = SIZE
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                    f"testsrc2=s={width}x{height}:r={RATE}:d={SECONDS}", "-f", "lavfi", "-i",
                    f"sine=440:b=2:r=48000:d={SECONDS}", "-ac", "2", *source.options, path], check=True,
                   stderr=subprocess.DEVNULL)
    return path
