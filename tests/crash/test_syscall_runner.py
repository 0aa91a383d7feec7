"""Tests of the system-call runner itself, with programs that every system has."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import drive


class RunnerTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        drive.require_tracing()

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="trevix-runner-")
        self.addCleanup(shutil.rmtree, self.folder)

    def run_shell(self, script, *arguments):
        return subprocess.run([drive.program("SYSCALL_RUNNER"), *arguments, "--", "sh", "-c",
                               script], cwd=self.folder, capture_output=True, text=True,
                              check=False)

    def exists(self, name):
        return os.path.exists(os.path.join(self.folder, name))

    def test_hands_on_the_exit_status_and_the_output(self):
        done = self.run_shell("echo out; exit 7", "count")

        self.assertEqual((done.returncode, done.stdout), (7, "out\n"))

    def test_hands_on_a_death_by_signal(self):
        self.assertEqual(self.run_shell("kill -TERM $$", "count").returncode, 128 + 15)

    def test_lists_the_writing_calls_of_all_processes(self):
        listing = os.path.join(self.folder, "list")
        self.run_shell("mkdir a; echo x > a/f; ln a/f g; rm g", "count", "--only-writing",
                       "--path", self.folder, "--list", listing)

        with open(listing, encoding="utf-8") as lines:
            calls = [line.split()[1] for line in lines]
        for call in ("mkdir", "open", "write", "link", "unlink"):
            self.assertTrue(any(found.startswith(call) for found in calls), (call, calls))

    def test_kills_before_a_call_is_made(self):
        done = self.run_shell("mkdir a; mkdir b; mkdir c", "kill", "2", "--calls", "mkdir,mkdirat")

        self.assertEqual(done.returncode, 137)
        self.assertEqual([self.exists(name) for name in "abc"], [True, False, False])

    def test_kills_after_a_call_was_made(self):
        done = self.run_shell("mkdir a; mkdir b; mkdir c", "kill", "2", "--after", "--calls",
                              "mkdir,mkdirat")

        self.assertEqual(done.returncode, 137)
        self.assertEqual([self.exists(name) for name in "abc"], [True, True, False])

    def test_says_when_the_call_is_never_reached(self):
        done = self.run_shell("mkdir a", "kill", "2", "--calls", "mkdir,mkdirat")

        self.assertEqual(done.returncode, 0)
        self.assertIn("call 2 was not reached, counted 1", done.stderr)

    def test_lets_one_call_fail(self):
        done = self.run_shell("mkdir a; mkdir b; mkdir c", "fail", "2", "--errno", "ENOSPC",
                              "--calls", "mkdir,mkdirat")

        self.assertIn("No space left on device", done.stderr)
        self.assertEqual([self.exists(name) for name in "abc"], [True, False, True])

    def test_lets_all_calls_fail_from_then_on(self):
        self.run_shell("mkdir a; mkdir b; mkdir c", "fail", "2", "--from-then-on", "--errno", "EIO",
                       "--calls", "mkdir,mkdirat")

        self.assertEqual([self.exists(name) for name in "abc"], [True, False, False])

    def test_chooses_the_calls_that_can_fail_with_the_error(self):
        done = self.run_shell("cat f; echo x > f", "fail", "1", "--errno", "ENOSPC", "--path",
                              self.folder)

        self.assertIn("failing call 1: open", done.stderr)
        self.assertFalse(self.exists("f"))

    def test_runs_a_script_while_the_program_stands_still(self):
        done = self.run_shell("mkdir a", "pause", "1", "--calls", "mkdir,mkdirat", "--exec",
                              "test ! -e a && touch a")

        self.assertIn("File exists", done.stderr)
        self.assertNotIn("script failed", done.stderr)

    def test_counts_from_the_opening_of_a_path(self):
        marker = os.path.join(self.folder, "marker")
        done = self.run_shell("mkdir a; : > marker; mkdir b", "kill", "1", "--calls",
                              "mkdir,mkdirat", "--arm-at", os.path.basename(marker))

        self.assertEqual(done.returncode, 137)
        self.assertEqual([self.exists(name) for name in "ab"], [True, False])

    def test_refuses_a_wrong_command_line(self):
        for arguments in (("kill",), ("kill", "0"), ("fail", "1"), ("pause", "1"),
                          ("fail", "1", "--errno", "EWHAT"), ("count", "--what")):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.run_shell("exit 0", *arguments).returncode, 125)


if __name__ == "__main__":
    unittest.main()
