"""Kills a real run at system calls and looks at what is left of the mail.

At every call that can change a file, and at calls of any kind as far as the time allows, the run is
killed before the call is made. Directly afterwards every message must be there, whole, at least
once. After the next start each must be there once, old or new, and no temporary file may be left.
"""

import os
import shutil
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import drive
import mail_reader

MIN_SIZE = "500"
# What may be so between the death of a run and the next start: the old and the new message both
# visible, and a temporary file.
PASSING = ("is there twice", "times too often", "temporary file")


class CrashTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        drive.program("TREVIXCTL")
        drive.require_tracing()
        cls.parent = tempfile.mkdtemp(prefix="trevix-crash-", dir=drive.scratch_parent())
        cls.addClassCleanup(shutil.rmtree, cls.parent, ignore_errors=True)
        cls.template = os.path.join(cls.parent, "template")
        drive.make_store(cls.template)
        cls.parser = mail_reader.Parser()
        cls.before = mail_reader.snapshot(cls.template, cls.parser)

    def clean_run(self, mode, arguments):
        """An undisturbed run: proves that the sweep has something to disturb."""
        with drive.Sandbox(self.parent, self.template) as sandbox:
            done = sandbox.compress(*arguments)
            self.assertEqual(done.status, drive.EXIT_DONE, done.describe())
            after = sandbox.snapshot(self.parser)
            self.assertEqual(
                mail_reader.compare(self.before, after, mode, int(MIN_SIZE), complete=True), [])
            changed = {m["sha"] for m in after["messages"]} - {m["sha"]
                                                               for m in self.before["messages"]}
            self.assertGreaterEqual(len(changed), 4)
            # The folder records that a run loads lie there until it saves them again.
            index = "trevix-%d/ZipIndex/maildir  sandbox Maildir/" % os.geteuid()
            return sandbox.temporary_entries() | {index + "txfolders.adtg", index + "txfolders.zip"}

    def calls_of_a_run(self, arguments, *filters):
        """(number, call and path) of each counted call of an undisturbed run."""
        with drive.Sandbox(self.parent, self.template) as sandbox:
            listing = os.path.join(sandbox.root, "calls")
            done = sandbox.compress(*arguments,
                                    runner=("count", "--arm-at", sandbox.root, "--list", listing,
                                            *filters))
            self.assertEqual(done.status, drive.EXIT_DONE, done.describe())
            with open(listing, encoding="utf-8", errors="replace") as lines:
                return [line.rstrip("\n").split(" ", 1) for line in lines]

    def kill_and_judge(self, number, mode, arguments, filters, clean_temporary):
        """None, or what was wrong after a run was killed at the call of this number."""
        with drive.Sandbox(self.parent, self.template) as sandbox:
            killed = sandbox.compress(*arguments, runner=("kill", str(number), "--arm-at",
                                                          sandbox.root, *filters))
            if killed.reached and killed.status != drive.EXIT_KILLED:
                return "not killed: " + killed.describe()
            found = [finding for finding in self.judge(sandbox, mode)
                     if not any(text in finding for text in PASSING)]
            if not found:
                failure = sandbox.start_again(*arguments)
                found = [failure] if failure else self.judge(sandbox, mode)
                left = sandbox.temporary_entries() - clean_temporary
                found += [f"left in the temporary directory: {name}" for name in sorted(left)]
            return killed.runner + "\n".join(found) if found else None

    def judge(self, sandbox, mode):
        return mail_reader.compare(self.before, sandbox.snapshot(self.parser), mode, int(MIN_SIZE))

    def sweep(self, mode, arguments, seconds):
        arguments = (*arguments, "--min-size", MIN_SIZE)
        clean_temporary = self.clean_run(mode, arguments)
        for filters, share in ((("--only-writing",), 0.75), ((), 0.25)):
            calls = self.calls_of_a_run(arguments, *filters)
            numbers = [int(number) for number, _ in calls]
            failures, count = drive.in_parallel(
                lambda number, filters=filters: self.kill_and_judge(
                    number, mode, arguments, filters, clean_temporary),
                numbers, drive.budget(seconds * share))
            self.assertGreater(len(numbers), 20)
            kind = "writing calls" if filters else "calls of any kind"
            drive.report(self, f"{mode}: killed at {count} of {len(numbers)} {kind}", failures)

    def test_a_killed_separate_run_loses_nothing(self):
        self.sweep("separate", ["--separate"], 70)

    def test_a_killed_rollup_run_loses_nothing(self):
        self.sweep("rollup", ["--rollup"], 90)


if __name__ == "__main__":
    unittest.main(verbosity=2)
