"""What the scripts of the tree say and do when something is wrong. Nothing is fetched and nothing is built."""
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


class Scripts(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.programs = self.folder / "programs"
        self.programs.mkdir()

    def stand_in(self, name, script):
        """Puts a shell script before the program of this name."""
        program = self.programs / name
        program.write_text(f"#!/bin/sh\n{script}\n")
        program.chmod(0o755)

    def script(self, *words, folder=ROOT):
        path = f"{self.programs}:{os.environ['PATH']}"
        return subprocess.run(words, cwd=folder, env={**os.environ, "PATH": path}, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, check=False)


class FetchModules(Scripts):
    def setUp(self):
        super().setUp()
        (self.folder / "package-lock.json").write_text("{}")

    def fetch(self):
        return self.script(ROOT / "tools/fetch-modules", str(self.folder))

    def test_a_failure_of_npm_is_shown(self):
        self.stand_in("npm", "echo 'npm error code ENOTFOUND' >&2; exit 1")
        result = self.fetch()
        self.assertEqual(result.returncode, 1)
        self.assertIn("npm error code ENOTFOUND", result.stderr)
        self.assertIn(f"npm could not fetch the modules of {self.folder}", result.stderr)

    def test_modules_are_fetched_once_for_each_lock_file(self):
        self.stand_in("npm", f"echo called >> {self.folder}/calls; mkdir -p {self.folder}/node_modules\n"
                             f"touch -d tomorrow {self.folder}/node_modules/.package-lock.json")
        for _ in range(2):
            self.assertEqual(self.fetch().returncode, 0)
        self.assertEqual((self.folder / "calls").read_text(), "called\n")
        os.utime(self.folder / "package-lock.json", (2 ** 32, 2 ** 32))
        self.fetch()
        self.assertEqual((self.folder / "calls").read_text(), "called\ncalled\n")


class Usage(Scripts):
    def test_a_script_that_is_called_wrongly_says_how_to_call_it_and_does_nothing(self):
        for program in ("apt-get", "cmake", "ninja", "npm"):
            self.stand_in(program, f"touch {self.folder}/was-called")
        for words in (["./test", "--help"], ["./test", "one", "two"], ["tools/check-style", "--all"]):
            result = self.script(*words)
            self.assertEqual(result.returncode, 64, words)
            self.assertIn(words[0], result.stderr)
        self.assertFalse((self.folder / "was-called").exists())


class Run(Scripts):
    """./run in a tree in which nothing has to be built: the program says with what it was called."""

    def setUp(self):
        super().setUp()
        self.tree = self.folder / "tree"
        self.home = self.folder / "home"
        self.bin = self.home / ".local/bin"
        program = self.tree / "build/release/target/bin/mirevo"
        for folder in (self.tree / "tools", self.home, program.parent):
            folder.mkdir(parents=True)
        for name in ("run", "tools/mirevo"):
            shutil.copy(ROOT / name, self.tree / name)
        self.write_program(program, 'echo "$ORVO_SYSROOT $*"')
        self.write_program(self.tree / "tools/install-packages", f"touch {self.folder}/was-called")
        self.stand_in("cmake", "exit 0")
        self.stand_in("ninja", "echo '[1/1] Building'")

    @staticmethod
    def write_program(path, script):
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)

    def run_it(self, *words, path=""):
        environment = {**os.environ, "HOME": str(self.home), "PATH": f"{self.programs}{path}:{os.environ['PATH']}"}
        for name in ("ORVO_SYSROOT", "XDG_STATE_HOME"):
            environment.pop(name, None)
        return subprocess.run(words, cwd=self.tree, env=environment, stdin=subprocess.DEVNULL, capture_output=True,
                              text=True, check=False)

    def test_a_wrong_command_line_is_refused_before_anything_is_installed(self):
        for words, status, reason in (([".", "--port"], 64, "--port needs a value"),
                                      (["/no/such/film"], 66, "/no/such/film: there is no such file or folder")):
            result = self.run_it("./run", *words)
            self.assertEqual((result.returncode, result.stderr), (status, f"run: {reason}\n"))
        self.assertFalse((self.folder / "was-called").exists())

    def test_it_says_that_it_builds_and_serves_what_it_was_given(self):
        result = self.run_it("./run", "tools", "--port", "80")
        state = self.home / ".local/state/mirevo"
        self.assertEqual(result.stdout, f"{state} serve --port 80 -- tools\n")
        self.assertTrue(result.stderr.startswith("building Mirevo; the first time takes a few minutes\n"))

    def test_a_state_folder_that_cannot_be_made_is_named(self):
        (self.home / ".local").write_text("")
        result = self.run_it("./run", "tools")
        self.assertEqual(result.returncode, 73)
        self.assertIn(f"the state cannot be kept in {self.home}/.local/state/mirevo", result.stderr)

    def test_the_command_is_linked_where_it_is_found_and_replaces_nothing(self):
        self.assertIn(f"the other commands: {self.tree}/tools/mirevo", self.run_it("./run", "tools").stderr)
        self.assertFalse(self.bin.exists())
        self.bin.mkdir()
        self.assertIn(f"mirevo is now in {self.bin}", self.run_it("./run", "tools", path=f":{self.bin}").stderr)
        self.assertEqual(self.run_it("mirevo", "play", "a", path=f":{self.bin}").stdout,
                         f"{self.home}/.local/state/mirevo play a\n")
        self.assertNotIn("command", self.run_it("./run", "tools", path=f":{self.bin}").stderr)
        (self.bin / "mirevo").unlink()
        (self.bin / "mirevo").write_text("something else")
        self.assertIn("the other commands", self.run_it("./run", "tools", path=f":{self.bin}").stderr)
        self.assertEqual((self.bin / "mirevo").read_text(), "something else")


class Tidy(Scripts):
    """tools/tidy with a stand-in that finds fault with every file that says FAULT, and cannot compile two together that
    say CLASH."""

    def setUp(self):
        super().setUp()
        self.stand_in("clang-tidy", f"""
            if [ "$1" = --version ]; then echo version 1; exit; fi
            for word; do [ "$word" != -- ] || break; last=$word; done
            files=$(sed -n 's/^#include "\\(.*cpp\\)".*/\\1/p' "$last")
            [ -n "$files" ] || files=$last
            basename -a $files | paste -sd + >> {self.folder}/checked
            [ "$(grep -l CLASH $files | wc -l)" -lt 2 ] || exit 1
            ! grep -H FAULT $files """)
        (self.folder / "tools").mkdir()
        (self.folder / "tools/tidy").write_text((ROOT / "tools/tidy").read_text())
        (self.folder / ".clang-tidy").write_text("Checks: all")
        self.write(**{"CMakeLists.txt": "cmake_minimum_required(VERSION 3.25)\nproject(a CXX)\n"
                                        "add_library(a a.cpp b.cpp)\n",
                      "a.cpp": '#include "a.h"\nint a = kA;', "b.cpp": "int b;", "a.h": "constexpr int kA = 1;"})
        self.git("init", "--quiet")
        self.git("add", "a.cpp", "b.cpp", "a.h")
        subprocess.run(["cmake", "-S", self.folder, "-B", self.folder / "build", "-G", "Ninja",
                        "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"], check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)

    def write(self, **files):
        for name, text in files.items():
            (self.folder / name).write_text(text)

    def git(self, *words):
        subprocess.run(["git", *words], cwd=self.folder, check=True)

    def tidy(self):
        """The files that were looked at, and the script's result."""
        (self.folder / "checked").write_text("")
        result = self.script("python3", "tools/tidy", "build", folder=self.folder)
        return sorted((self.folder / "checked").read_text().split()), result

    def test_a_clean_file_is_checked_again_only_after_a_change_of_what_it_is_made_of(self):
        self.assertEqual(self.tidy()[0], ["a.cpp+b.cpp"])
        for name, text in (("a.h", "constexpr int kA = 2;"), ("b.cpp", "int b;  // a comment may switch a check off"),
                           (".clang-tidy", "Checks: others")):
            self.assertEqual(self.tidy()[0], [])
            self.write(**{name: text})
            self.assertEqual(self.tidy()[0], ["a.cpp+b.cpp"])

    def test_files_that_do_not_fit_together_are_checked_alone(self):
        self.write(**{"a.cpp": "// CLASH", "b.cpp": "// CLASH"})
        checked, result = self.tidy()
        self.assertEqual((checked, result.returncode), (["a.cpp", "a.cpp+b.cpp", "b.cpp"], 0))
        self.assertEqual(self.tidy()[0], [])

    def test_a_fault_is_shown_each_time_and_fails(self):
        self.write(**{"b.cpp": "int FAULT;"})
        for expected in (["a.cpp", "a.cpp+b.cpp", "b.cpp"], ["a.cpp+b.cpp", "b.cpp"]):
            checked, result = self.tidy()
            self.assertEqual((checked, result.returncode), (expected, 1))
            self.assertIn("int FAULT;", result.stdout)


if __name__ == "__main__":
    unittest.main()
