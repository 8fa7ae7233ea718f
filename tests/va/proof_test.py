#!/usr/bin/env python3
"""A video engine counts only when it has encoded.

Usage: proof_test.py TRANSCODER DRIVER
"""
import pathlib
import shutil
import sys
import unittest

import card

ENCODE = ("-i", "film", "-vcodec", "h264_vaapi", "-s", "1280x720", "pipe:1")


class Proof(card.Case):
    def test_an_engine_that_encodes_is_proved_and_used(self):
        machine = self.machine()
        self.assertIn("libx264", machine.explain(*ENCODE), "without a proof")
        self.assertTrue(machine.prove().startswith("1080 lines"))
        command = machine.explain(*ENCODE)
        self.assertIn("h264_vaapi", command)
        self.assertIn(f"-vaapi_device {machine.root}/dev/dri/renderD128", command)

    def test_engines_that_fail_are_not_used(self):
        machine = self.machine()
        machine.prove()
        for failure in ("open", "configure", "picture=2", "lie"):
            with self.subTest(failure):
                self.assertRegex(machine.prove(failure), "^(It fails|What it encodes)")
                self.assertIn("libx264", machine.explain(*ENCODE))

    def test_an_engine_that_hangs_is_given_up(self):
        machine = self.machine()
        self.assertRegex(machine.prove("hang=2"), "^It fails")
        self.assertIn("libx264", machine.explain(*ENCODE))

    def test_an_engine_counts_up_to_the_size_that_it_has_encoded(self):
        self.assertRegex(self.machine().prove("lines=800"), "^720 lines.* 1080 lines")

    def test_a_machine_without_a_node_has_no_engine(self):
        self.assertRegex(self.machine(nodes=()).prove(), "no device")

    def test_a_node_without_a_driver_is_no_engine(self):
        machine = self.machine()
        machine.environment["LIBVA_DRIVERS_PATH"] = "/nowhere"
        self.assertRegex(machine.prove(), "^It fails")


class Record(card.Case):
    def setUp(self):
        self.on = self.machine()
        self.on.prove()
        self.assertIn("h264_vaapi", self.on.explain(*ENCODE))

    def assert_forgotten(self):
        self.assertIn("libx264", self.on.explain(*ENCODE))

    def test_a_reboot_ends_a_proof(self):
        self.on.write("proc/sys/kernel/random/boot_id", "another\n")
        self.assert_forgotten()

    def test_another_node_ends_a_proof(self):
        (self.on.root / "dev/dri/renderD129").symlink_to("/dev/null")
        self.assert_forgotten()

    def test_another_driver_ends_a_proof(self):
        folder = self.on.root / "drivers"
        folder.mkdir()
        shutil.copy(card.PROGRAMS["driver"], folder)
        self.on.environment["LIBVA_DRIVERS_PATH"] = str(folder)
        self.assert_forgotten()

    def test_a_damaged_record_is_none(self):
        path = pathlib.Path(self.on.root, "tmp/Mirevo/transcoder_engines")
        good = path.read_text()
        for damaged in ("", good[:40], good.replace("1080", "many"), good + "more\n"):
            with self.subTest(damaged[-40:]):
                path.write_text(damaged)
                self.assert_forgotten()


if __name__ == "__main__":
    card.take_arguments(sys.argv[1:])
    unittest.main(argv=sys.argv[:1], verbosity=2)
