"""The build, installed into a scratch directory, and how tests look at it there."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.environ.get("TREVIX_BUILD", "")
PREFIX = os.environ.get("TREVIX_PREFIX", "")
CMAKE = os.environ.get("TREVIX_CMAKE", "cmake")
SECONDS = 300


def skip(reason):
    """Skips the test, or fails it where everything must run."""
    if os.environ.get("TREVIX_REQUIRE_ALL") == "1":
        raise AssertionError(reason)
    raise unittest.SkipTest(reason)


def require(*programs):
    for program in programs:
        if shutil.which(program) is None:
            skip(f"{program} is not installed")


def run(*command, **options):
    options.setdefault("timeout", SECONDS)
    return subprocess.run(command, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, check=False, **options)


class Installed:
    """What is below one root: an installation in a scratch directory, or an unpacked package."""

    def __init__(self, root, prefix):
        self.root = root
        self.prefix = prefix
        self.ctl = self.path("bin/trevixctl")

    def path(self, name):
        """Where a file below the prefix lies now; a name from the root stays below the root."""
        return os.path.join(self.root, os.path.join(self.prefix, name).lstrip("/"))

    def files(self):
        found = set()
        for directory, _, names in os.walk(self.root):
            found |= {os.path.relpath(os.path.join(directory, name), self.root) for name in names}
        return found

    def help(self, *words):
        done = run(self.ctl, *words, "--help")
        if done.returncode != 0:
            raise AssertionError(done.stderr)
        return done.stdout

    def commands(self):
        """All commands, as tuples of words, with the sub-commands of each behind it."""
        found = []
        for name in commands_in(self.help()):
            found.append((name,))
            found += [(name, below) for below in commands_in(self.help(name))]
        return found


def commands_in(text):
    section = text.partition("\nSubcommands:\n")[2].partition("\n\n")[0]
    return re.findall(r"^  ([a-z]+) ", section, re.MULTILINE)


def options_in(text):
    """All names of options that stand at the beginning of help lines."""
    found = set()
    for line in re.findall(r"^  (-\S+)", text, re.MULTILINE):
        found |= set(line.rstrip(",").split(","))
    return found


def install(root):
    done = run(CMAKE, "--install", BUILD, env={**os.environ, "DESTDIR": root})
    if done.returncode != 0:
        raise AssertionError(done.stdout + done.stderr)
    return Installed(root, PREFIX)


class Case(unittest.TestCase):
    """Tests of one installation, which is made once for the class."""

    @classmethod
    def setUpClass(cls):
        if not BUILD:
            skip("TREVIX_BUILD does not name a build")
        cls.scratch = tempfile.mkdtemp(prefix="trevix-installed-")
        cls.addClassCleanup(shutil.rmtree, cls.scratch, ignore_errors=True)
        cls.installed = install(os.path.join(cls.scratch, "root"))


def main():
    sys.stdout.reconfigure(errors="replace")
    unittest.main(verbosity=1)
