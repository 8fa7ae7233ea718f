"""Processes are started, signalled and reaped in platform/ and nowhere else."""

import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(sys.argv.pop(1) if len(sys.argv) > 1 else ".").resolve()
ELSEWHERE = {"platform", "tests", "bench", "build"}

CALLS = re.compile(
    r"(?<![\w.>])(?:std::|::)?(v?fork|clone3?|exec[lv]p?e?|execvpe|execveat|fexecve|posix_spawnp?|"
    r"kill|killpg|tgkill|pthread_kill|raise|pidfd_send_signal|wait|wait3|wait4|waitpid|waitid|"
    r"system|popen|daemon)\s*\(")
CONSTANTS = re.compile(r"\bSYS_(?:v?fork|clone3?|exec\w+|t?kill|wait\w+|pidfd_send_signal)\b")

# Files that may, and why.
EXCEPTIONS = {"serve/doorkeeper.cpp": "stands between the web server and its own calls"}

COMMENTS_AND_TEXTS = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"', re.DOTALL)


def code_of(text):
    """The text without comments and literals; its lines keep their numbers."""
    return COMMENTS_AND_TEXTS.sub(lambda found: "\n" * found.group().count("\n"), text)


def calls_in(text):
    """(line, name) of each call that only platform/ may make."""
    code = code_of(text)
    found = [*CALLS.finditer(code), *CONSTANTS.finditer(code)]
    return [(code.count("\n", 0, hit.start()) + 1, hit.group().strip(" (:")) for hit in found]


def sources():
    """The product's own C and C++ files outside platform/."""
    for folder in sorted(ROOT.iterdir()):
        if folder.is_dir() and folder.name not in ELSEWHERE and not folder.name.startswith("."):
            yield from (path for path in sorted(folder.rglob("*"))
                        if path.suffix in {".c", ".cc", ".cpp", ".h", ".hpp"})


class LaunchSites(unittest.TestCase):
    def test_only_the_platform_starts_signals_and_reaps_processes(self):
        strays = []
        for path in sources():
            name = str(path.relative_to(ROOT))
            if name not in EXCEPTIONS:
                strays += [f"{name}:{line}: {call}" for line, call in calls_in(path.read_text())]
        self.assertEqual(strays, [], "use platform/process_launch.h and platform/process.h")

    def test_each_exception_is_still_one(self):
        for name in EXCEPTIONS:
            path = ROOT / name
            self.assertTrue(path.exists() and calls_in(path.read_text()), name)

    def test_the_walk_finds_the_programs(self):
        folders = {path.relative_to(ROOT).parts[0] for path in sources()}
        self.assertLessEqual({"liborvoqmx", "mirevo", "serve", "transcoder", "webapi"}, folders)

    def test_the_calls_are_told_from_other_words(self):
        for text in ("fork()", "x = ::vfork ()", "execvp(a, b)", "std::system(c)", "kill(1, 2);",
                     "if (waitpid(-1, 0, 0))", "posix_spawn(a)", "syscall(SYS_clone3, a)", "wait(0)"):
            self.assertEqual(len(calls_in(text)), 1, text)
        for text in ("// fork()", "/* a\nexecv( */", '"system(1)"', "demand.wait(lock)",
                     "PlatExecv(a)", "future->wait()", "Fork(body)", "skill(1)", "ReapChild(1)"):
            self.assertEqual(calls_in(text), [], text)


if __name__ == "__main__":
    unittest.main()
