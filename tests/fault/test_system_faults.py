"""Lets system calls of a real run fail: full disk, I/O error, no permission, no descriptors.

Whichever call fails, once or from then on, no mail may be lost or altered, the program must end by
itself with a known exit status, and it must say so when it left something undone.
"""

import os
import shutil
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import drive
import mail_reader

MIN_SIZE = "500"
RUN = ("--min-size", MIN_SIZE)
KNOWN_EXITS = (drive.EXIT_DONE, drive.EXIT_FAILED, drive.EXIT_SOME_FAILED, drive.EXIT_BUSY)
SECONDS = 12
WAITING = 3  # trials at a time for each job: most of a trial is spent waiting


class SystemFaultTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        drive.program("TREVIXCTL")
        drive.require_tracing()
        cls.parent = tempfile.mkdtemp(prefix="trevix-fault-", dir=drive.scratch_parent())
        cls.addClassCleanup(shutil.rmtree, cls.parent, ignore_errors=True)
        cls.template = os.path.join(cls.parent, "template")
        drive.make_store(cls.template)
        cls.parser = mail_reader.Parser()
        cls.before = mail_reader.snapshot(cls.template, cls.parser)

    def judge(self, sandbox, **options):
        # What one attachment lost to the fault is zipped by the next run, in an archive of its own.
        return mail_reader.compare(self.before, sandbox.snapshot(self.parser), "any",
                                   int(MIN_SIZE), **options)

    def count(self, mode, error):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            done = sandbox.compress("--" + mode, *RUN,
                                    runner=("count", "--arm-at", sandbox.root, "--errno", error))
            self.assertEqual(done.status, drive.EXIT_DONE, done.describe())
            self.assertEqual(self.judge(sandbox, complete=True), [])
            return int(done.runner.split("counted ")[1].split()[0])

    def fail_and_judge(self, number, mode, error, lasting):
        """None, or what was wrong after the call of this number failed."""
        with drive.Sandbox(self.parent, self.template) as sandbox:
            # A pass looks again at what changed in the second of the last one: these mails are
            # older, so only those that it notes as failed are reached again.
            time.sleep(1.05 - time.time() % 1)
            runner = ["fail", str(number), "--arm-at", sandbox.root, "--errno", error]
            done = sandbox.compress("--" + mode, *RUN,
                                    runner=runner + ["--from-then-on"] * lasting)
            found = self.judge(sandbox, allow_tmp=True)
            if lasting:
                # The old message could not be removed either; the next start finishes that.
                found = [text for text in found
                         if "is there twice" not in text and "times too often" not in text]
            if done.status not in KNOWN_EXITS:
                found.append("unknown exit status")
            if done.status != drive.EXIT_DONE and not done.err.strip():
                found.append("failed without a word")
            undone = self.judge(sandbox, allow_tmp=True, complete=True)
            if done.status == drive.EXIT_DONE and undone and not self.reported(sandbox, done):
                found.append("left mail untreated without a word: " + undone[0])
            failure = sandbox.start_again("--" + mode, *RUN)
            found += [failure] if failure else self.judge(sandbox)
            if not failure and sandbox.compress("--" + mode, *RUN).status == drive.EXIT_DONE:
                # Nothing that failed is passed over for good.
                found += [f"never treated: {text}" for text in self.judge(sandbox, complete=True)]
            return f"{done.describe()}\n" + "\n".join(found) if found else None

    @staticmethod
    def reported(sandbox, done):
        """Whether the run spoke of a failure: on standard error, in its events or in its log."""
        texts = [done.err, done.out if "err" in done.out.lower() else ""]
        for path, _, files in os.walk(sandbox.root):
            if "trevix.log" in files and not path.startswith(sandbox.store):
                with open(os.path.join(path, "trevix.log"), encoding="utf-8",
                          errors="replace") as log:
                    texts += [line for line in log if "err" in line.lower() or "fail" in line]
        return any(text.strip() for text in texts)

    def sweep(self, error):
        for mode, lasting in (("separate", False), ("rollup", True), ("rollup", False),
                              ("separate", True)):
            with self.subTest(mode=mode, lasting=lasting):
                total = self.count(mode, error)
                self.assertGreater(total, 5)
                failures, count = drive.in_parallel(
                    lambda number, mode=mode, lasting=lasting: self.fail_and_judge(
                        number, mode, error, lasting),
                    range(1, total + 1), drive.budget(SECONDS), WAITING * drive.JOBS)
                kind = "from then on" if lasting else "once"
                drive.report(self, f"{error} {kind}, {mode}: at {count} of {total} calls", failures)

    def test_a_full_disk_loses_nothing(self):
        self.sweep("ENOSPC")

    def test_an_io_error_loses_nothing(self):
        self.sweep("EIO")

    def test_missing_permission_loses_nothing(self):
        self.sweep("EACCES")

    def test_running_out_of_descriptors_loses_nothing(self):
        self.sweep("EMFILE")


if __name__ == "__main__":
    unittest.main(verbosity=2)
