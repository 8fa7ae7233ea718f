#!/usr/bin/env python3
"""What the program finds out about a machine, and what it offers there.

Usage: machine_test.py TRANSCODER DRIVER PACKAGE
"""
import json
import platform
import subprocess
import sys
import unittest

import card

USAGE = 64
PLAIN = "alpine" if platform.machine().startswith(("arm", "aarch")) else "x86"


class Installed(card.Case):
    """A machine with the package."""

    def setUp(self):
        self.on = self.machine()
        target = self.on.root / "var/packages/Mirevo/target"
        target.symlink_to(card.PROGRAMS["package"][0])
        self.program = target / "bin/mirevo"

    def mirevo(self, *arguments, failure="", code=0):
        result = subprocess.run([self.program, *arguments], capture_output=True, text=True,
                                env={**self.on.environment, "ORVO_TEST_CARD": failure}, check=False)
        self.assertEqual(result.returncode, code, result.stdout + result.stderr)
        return result

    def json(self, *arguments, **options):
        return json.loads(self.mirevo(*arguments, "--json", **options).stdout)

    def profiles(self, film):
        return [row["key"] for row in self.json("explain", film)["profiles"]]


class Machines(Installed):
    def test_a_card_that_encodes_makes_a_platform_with_va_api(self):
        found = self.json("platform", "--detect")
        self.assertEqual((found["platform"], found["origin"]), ("braswell", "detected"))
        text = (self.on.root / "var/packages/Mirevo/etc/vaapi_ffmpeg").read_text()
        self.assertTrue(json.loads(text)["enable"])

    def test_a_card_that_fails_makes_a_plain_platform(self):
        self.assertEqual(self.json("platform", "--detect")["platform"], "braswell")
        found = self.json("platform", "--detect", failure="configure")
        self.assertEqual((found["platform"], found["origin"]), (PLAIN, "detected"))
        text = (self.on.root / "var/packages/Mirevo/etc/vaapi_ffmpeg").read_text()
        self.assertFalse(json.loads(text)["enable"])

    def test_detection_leaves_the_owners_entries_alone(self):
        self.on.write("var/packages/Mirevo/etc/vaapi_ffmpeg", '{"enable": false}')
        self.on.write("etc.defaults/orvoinfo.conf", 'company="x"\nunique="maker_monaco_box"\n')
        found = self.json("platform", "--detect")
        self.assertEqual((found["platform"], found["origin"]), ("monaco", "own"))
        self.assertIn("maker_monaco_box", (self.on.root / "etc.defaults/orvoinfo.conf").read_text())
        self.mirevo("platform", "avoton")
        text = (self.on.root / "etc.defaults/orvoinfo.conf").read_text()
        self.assertIn('company="x"\n', text)
        self.assertEqual(self.json("platform", "--detect")["platform"], "avoton")
        self.assertIn("false", (self.on.root / "var/packages/Mirevo/etc/vaapi_ffmpeg").read_text())

    def test_unknown_names_change_nothing(self):
        self.mirevo("platform", "nosuch", code=USAGE)
        self.mirevo("hardware", "maybe", code=USAGE)
        self.assertEqual(self.json("platform")["origin"], "none")
        self.assertTrue(self.json("hardware")["wanted"])

    def test_the_switch_keeps_other_settings(self):
        self.on.write("var/packages/Mirevo/etc/advanced.conf", '{"other": 1}')
        self.assertFalse(self.json("hardware", "off")["wanted"])
        text = (self.on.root / "var/packages/Mirevo/etc/advanced.conf").read_text()
        self.assertEqual(json.loads(text), {"other": 1, "hardware_transcode": False})
        self.assertTrue(self.json("hardware", "on")["wanted"])

    def test_the_doctor_names_engine_and_proof(self):
        self.json("platform", "--detect")
        rows = {row["check"]: row for row in self.findings()}
        self.assertEqual(rows["hardware h264_vaapi"]["state"], "ok")
        self.assertRegex(rows["hardware h264_vaapi"]["detail"], "renderD128 has encoded .*1080 lines")
        self.json("platform", "--detect", failure="open")
        rows = {row["check"]: row for row in self.findings()}
        self.assertEqual(rows["hardware h264_vaapi"]["state"], "warning")
        self.assertIn("is not used. It fails", rows["hardware h264_vaapi"]["detail"])

    def findings(self):
        # What else this machine lacks is no matter here.
        result = subprocess.run([self.program, "doctor", "--json"], capture_output=True, text=True,
                                env=self.on.environment, check=False)
        return json.loads(result.stdout)["findings"]


class Offers(Installed):
    def setUp(self):
        super().setUp()
        self.film = str(self.on.root / "film.mkv")
        subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                        "testsrc2=s=1280x720:r=25:d=1", "-f", "lavfi", "-i", "sine=d=1",
                        "-c:v", "mpeg4", "-c:a", "aac", self.film], check=True)

    def engines(self):
        return [key for key in self.profiles(self.film) if "_vaapi_" in key]

    def test_profiles_of_an_engine_need_its_proof_and_the_owners_wish(self):
        self.mirevo("platform", "braswell")
        self.assertEqual(self.engines(), [], "not proved")
        self.mirevo("hardware", "on")
        self.assertTrue(any(key.startswith("hls_720p") for key in self.engines()))
        self.mirevo("hardware", "off")
        self.assertEqual(self.engines(), [], "not wanted")
        self.mirevo("hardware", "on", failure="lines=500")
        self.assertTrue(any(key.startswith("hls_480p") for key in self.engines()))
        self.assertFalse(any(key.startswith("hls_720p") for key in self.engines()), "too tall")

    def test_profiles_stay_where_all_of_them_need_an_engine(self):
        self.mirevo("platform", "evansport")
        self.assertTrue(any(key.startswith("hls_720p") for key in self.profiles(self.film)))


if __name__ == "__main__":
    card.take_arguments(sys.argv[1:])
    unittest.main(argv=sys.argv[:1], verbosity=2)
