"""Finds a film by the UPnP discovery of libvlc and plays it to its end.

vlc.py INTERFACE SERVER TITLE prints the milliseconds that it played and the pictures that it showed.
"""

import ctypes
import sys
import time

PATIENCE = 60  # seconds; libvlc tells of its states by callbacks of other threads, which Python would have to join
PARSE_NETWORK = 1
ENDED, ERROR = 6, 7
TITLE = 0


class Stats(ctypes.Structure):
    _fields_ = [
        ("read_bytes", ctypes.c_int), ("input_bitrate", ctypes.c_float),
        ("demux_read_bytes", ctypes.c_int), ("demux_bitrate", ctypes.c_float),
        ("demux_corrupted", ctypes.c_int), ("demux_discontinuity", ctypes.c_int),
        ("decoded_video", ctypes.c_int), ("decoded_audio", ctypes.c_int),
        ("displayed_pictures", ctypes.c_int), ("lost_pictures", ctypes.c_int),
        ("played_abuffers", ctypes.c_int), ("lost_abuffers", ctypes.c_int),
        ("sent_packets", ctypes.c_int), ("sent_bytes", ctypes.c_int), ("send_bitrate", ctypes.c_float),
    ]


def load():
    vlc = ctypes.CDLL("libvlc.so.5")
    for name in ("new", "media_discoverer_new", "media_discoverer_media_list", "media_list_item_at_index",
                 "media_subitems", "media_player_new_from_media"):
        getattr(vlc, "libvlc_" + name).restype = ctypes.c_void_p
    vlc.libvlc_media_get_meta.restype = ctypes.c_char_p
    vlc.libvlc_media_player_get_time.restype = ctypes.c_int64
    return vlc


vlc = load()


def pointer(value):
    return ctypes.c_void_p(value)


def wait(look, what):
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        found = look()
        if found:
            return found
        time.sleep(0.05)
    sys.exit("no " + what)


def entry_of(media_list, title):
    """The first entry of a list whose title begins like this."""
    vlc.libvlc_media_list_lock(pointer(media_list))
    try:
        for index in range(vlc.libvlc_media_list_count(pointer(media_list))):
            media = vlc.libvlc_media_list_item_at_index(pointer(media_list), index)
            name = vlc.libvlc_media_get_meta(pointer(media), TITLE) or b""
            if name.decode().startswith(title):
                return media
    finally:
        vlc.libvlc_media_list_unlock(pointer(media_list))
    return None


def opened(folder):
    vlc.libvlc_media_parse_with_options(pointer(folder), PARSE_NETWORK, PATIENCE * 1000)
    return vlc.libvlc_media_subitems(pointer(folder))


def play(media):
    player = pointer(vlc.libvlc_media_player_new_from_media(pointer(media)))
    vlc.libvlc_media_player_play(player)
    latest, stats = 0, Stats()

    def has_ended():
        nonlocal latest
        latest = max(latest, vlc.libvlc_media_player_get_time(player))
        vlc.libvlc_media_get_stats(pointer(media), ctypes.byref(stats))
        return vlc.libvlc_media_player_get_state(player) in (ENDED, ERROR)

    wait(has_ended, "end of the film")
    if vlc.libvlc_media_player_get_state(player) == ERROR:
        sys.exit("the film does not play")
    print(latest, stats.displayed_pictures)


def main():
    interface, server, title = sys.argv[1:]
    options = ["--quiet", "--miface=" + interface, "--vout=dummy", "--aout=dummy", "--no-video-title-show"]
    words = (ctypes.c_char_p * len(options))(*[option.encode() for option in options])
    core = pointer(vlc.libvlc_new(len(options), words))
    discoverer = pointer(vlc.libvlc_media_discoverer_new(core, b"upnp"))
    if vlc.libvlc_media_discoverer_start(discoverer) != 0:
        sys.exit("no discovery by UPnP")
    servers = vlc.libvlc_media_discoverer_media_list(discoverer)
    found = wait(lambda: entry_of(servers, server), server)
    films = opened(found)
    play(wait(lambda: entry_of(films, title), title))
    vlc.libvlc_media_discoverer_stop(discoverer)


main()
