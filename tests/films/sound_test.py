#!/usr/bin/env python3
"""Listens to the sound of every kind of stream that encodes it: the channels of a film become stereo, and what the
viewer wishes is kept.

Usage: sound_test.py TRANSCODER PROFILES [TEST...]
"""
import array
import itertools
import math
import os

from streams import KEYS, StreamTest, decoded, main, make, probe

KINDS = [kind for kind in KEYS if kind != "ts"]  # its sound is made like that of MP4
PICTURE = ["-f", "lavfi", "-i", "color=s=64x48:r=5"]
SECONDS = 3
RATE = 48000
# The film's codecs: samples of AC-3 have a point, those of FLAC are whole numbers, and AAC holds eight channels.
FILMS = {"5.1 ac3": ("5.1(side)", "ac3"), "5.1 flac": ("5.1", "flac"), "7.1 aac": ("7.1", "aac")}
LEVEL = 0.25  # of a tone


def film(path, sound, codec):
    return make(path, *PICTURE, "-f", "lavfi", "-i", sound, "-t", f"{SECONDS}", "-c:v", "libx264", "-preset",
                "ultrafast", "-pix_fmt", "yuv420p", "-c:a", codec, "-b:a", "448k")


def tones(layout, channels):
    """A tone in some of the layout's channels."""
    kept = "|".join(f"{channel}=c0" for channel in channels)
    return f"aevalsrc={LEVEL}*sin(2000*PI*t):s={RATE},pan={layout}|{kept}"


def channels(path):
    return probe(path, "channels", "a")["channels"]


def samples(path):
    """Both channels, one after the other."""
    raw = decoded(path, "-map", "0:a", "-ac", "2", "-f", "f32le")
    values = array.array("f", raw)
    return values[0::2], values[1::2]


def decibels(values):
    return 20 * math.log10(max(1e-6, math.sqrt(sum(value * value for value in values) / len(values))))


def second(values, number):
    """The middle of one second."""
    return values[int((number + 0.3) * RATE):int((number + 0.8) * RATE)]


class Sound(StreamTest):
    def listen(self, kind, path, wish=""):
        return self.stream(kind, path, extra=["-sound", wish] if wish else [], track="audio")

    def film(self, name, sound, codec):
        path = self.folder / f"{name}.mkv"
        return os.fspath(path) if path.exists() else film(path, sound, codec)

    def test_the_center_is_heard_at_three_decibels_below_the_sides(self):
        def check(case):
            kind, (name, (layout, codec)) = case
            wanted = 20 * math.log10(LEVEL / 2)  # the power of a sine is half of its peak's, and so is -3 dB
            center = self.film(f"{name} center {kind}", tones(layout, ["FC"]), codec)
            found = [decibels(second(side, 1)) for side in samples(self.listen(kind, center))]
            return None if all(abs(level - wanted) < 1 for level in found) else f"{kind} {name}: {found}, not {wanted}"

        self.judge(check, itertools.product(KINDS, FILMS.items()))

    def test_all_channels_together_do_not_clip(self):
        loud = f"aevalsrc=0.9*sin(2000*PI*t):s={RATE},pan=5.1|FL=c0|FR=c0|FC=c0|BL=c0|BR=c0"
        path = self.film("loud", loud, "flac")

        def check(kind):
            left = second(samples(self.listen(kind, path))[0], 1)
            clipped = sum(1 for value in left if abs(value) > 1.12)
            # A sine that is cut off at its top has more power than one that reaches it.
            return None if clipped == 0 and decibels(left) < -2.2 else f"{kind}: {clipped} {decibels(left)}"

        self.judge(check, KINDS)

    def test_loud_places_come_near_speech_at_night(self):
        noise = f"anoisesrc=r={RATE}:a=0.6:seed=3,lowpass=f=6000,volume='if(between(t,1,2),1,0.1)':eval=frame"
        path = self.film("loud places", noise, "flac")

        def distance(kind, wish):
            left = samples(self.listen(kind, path, wish))[0]
            return decibels(second(left, 1)) - decibels(second(left, 0))

        def check(kind):
            usual, night = distance(kind, ""), distance(kind, "night")
            return None if usual > 18 and 2 < night < 8 else f"{kind}: {usual} dB, at night {night} dB"

        self.judge(check, KINDS)

    def test_the_channels_of_the_film_are_kept_where_the_stream_can_hold_them(self):
        path = self.film("original", tones("5.1", ["FC"]), "flac")
        found = {kind: channels(self.listen(kind, path, "original")) for kind in KINDS}
        self.assertEqual(found, {"mp4": 6, "wmv": 2, "remux": 6, "hls": 6, "webm": 2, "smooth": 2})


if __name__ == "__main__":
    main()
