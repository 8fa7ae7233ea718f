#!/usr/bin/env python3
"""Runs whose copies are made by the parent of copies behave like those that copy by themselves, and the parent is as
confined as they are.

Usage: copy_parent_test.py TRANSCODER
"""
import os
import pathlib
import signal
import socket
import subprocess
import sys
import unittest

import segment_run_test
from segment_run_test import PATIENCE, QUIET, Running, has_ended


def status(pid):
    lines = pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
    return {name: value.strip() for name, value in (line.split(":", 1) for line in lines)}


def children(pid):
    return pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()


def start_parent(test, option):
    """The transcoder program as one of its parents, which the test ends with."""
    parent = Running.process = subprocess.Popen([segment_run_test.TRANSCODER, option], stdin=subprocess.DEVNULL,
                                                stdout=subprocess.DEVNULL)
    test.addCleanup(parent.wait)
    test.addCleanup(parent.kill)
    # The filter is the last step before it serves.
    test.assertTrue(wait_for(lambda: status(parent.pid)["Seccomp"] == "2"))
    return parent


def wait_for(condition):
    for _ in range(int(PATIENCE / 0.01)):
        if condition():
            return True
        try:
            Running.process.wait(0.01)
        except subprocess.TimeoutExpired:
            pass
    return condition()


class CopyParent(segment_run_test.SegmentRun):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        os.makedirs(os.path.join(cls.folder, "tmp/Mirevo"))
        cls.socket = os.path.join(cls.folder, "tmp/Mirevo/copies")

    def setUp(self):
        self.parent = start_parent(self, "--copies")
        Running.parent = self.parent.pid

    def connect(self, *messages):
        connection = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        connection.settimeout(PATIENCE)
        connection.connect(self.socket)
        for message in messages:
            connection.send(message)
        return connection

    def test_a_copy_is_confined_like_its_parent(self):
        copy = self.paused().child()
        for pid in (self.parent.pid, copy):
            self.assertEqual((status(pid)["Seccomp"], status(pid)["NoNewPrivs"]), ("2", "1"))
        self.assertEqual(int(status(copy)["Seccomp_filters"]), int(status(self.parent.pid)["Seccomp_filters"]) + 1)
        names = [os.readlink(entry) for entry in pathlib.Path(f"/proc/{copy}/fd").iterdir()]
        self.assertEqual([name for name in names if name.startswith("socket:")], [])

    def test_the_segments_are_those_of_a_run_that_copies_by_itself(self):
        with_parent = self.whole().contents()
        os.unlink(self.socket)
        self.assertEqual(with_parent, self.whole().contents())

    def test_copies_end_with_their_parent(self):
        running = self.paused()
        copy = os.pidfd_open(running.child())
        self.parent.kill()
        self.assertTrue(has_ended(copy))
        self.assertTrue(running.ends_within(PATIENCE))
        self.assertEqual(running.process.returncode, 128 + signal.SIGKILL)
        os.close(copy)

    def test_a_run_copies_by_itself_where_the_parent_does_not_answer(self):
        self.parent.send_signal(signal.SIGSTOP)
        Running.parent = None
        self.assertTrue(self.paused().child())
        self.parent.send_signal(signal.SIGCONT)
        self.assertTrue(wait_for(lambda: not children(self.parent.pid)))

    def test_a_run_copies_by_itself_where_the_parent_has_ended(self):
        self.parent.kill()
        self.parent.wait()
        Running.parent = None
        self.assertTrue(self.paused().child())

    def test_several_copies_run_beside_each_other(self):
        first, second = self.paused(), self.paused()
        self.assertEqual(len(children(self.parent.pid)), 2)
        first.process.terminate()
        self.assertTrue(first.ends_within(PATIENCE))
        self.assertFalse(second.ends_within(QUIET))
        self.assertEqual(len(children(self.parent.pid)), 1)

    def test_a_message_that_is_no_copy_is_refused_and_harms_nobody(self):
        for message in (b"x", b"\0" * 20, b"film\0000\0" * 9, b"9" * 65536):
            with self.connect(message) as connection:
                self.assertEqual(connection.recv(64), b"")
        with self.connect():
            self.assertTrue(self.whole())

    def test_a_second_parent_takes_the_place_of_one_that_was_killed(self):
        self.parent.kill()
        self.parent.wait()
        self.setUp()
        self.assertTrue(self.paused().child())


if __name__ == "__main__":
    segment_run_test.TRANSCODER = sys.argv.pop(1)
    unittest.main()
