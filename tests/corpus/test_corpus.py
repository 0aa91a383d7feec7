"""Compresses a store of real messages, in both modes, and judges the result with other programs.

The messages lie in corpus/mail of a folder beside the repository (or named by TREVIX_SHARED); the
tests are skipped where it is absent.
"""

import glob
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import drive
import mail_reader

SHARED = os.environ.get("TREVIX_SHARED") or os.path.join(
    os.path.dirname(drive.REPOSITORY), "shared")
FOLDERS = ("", ".Archive", ".Archive.2019")


def deliver_all(store):
    """Every message once, spread over the folders, new and cur, names with and without sizes."""
    messages = sorted(glob.glob(os.path.join(SHARED, "corpus", "mail", "*.eml")))
    for folder in FOLDERS:
        for part in ("new", "cur", "tmp"):
            os.makedirs(os.path.join(store, folder, part))
    for number, message in enumerate(messages):
        with open(message, "rb") as file:
            raw = file.read()
        name = f"{1_200_000_000 + number * 7919}.M{number}P7.host"
        if number % 3:
            wide = len(raw) + raw.count(b"\n") - raw.count(b"\r\n")
            name += f",S={len(raw)},W={wide}"
        part = "new" if number % 5 == 0 else "cur"
        name += "" if part == "new" else ":2," + ("", "S", "RS", "FS")[number % 4]
        path = os.path.join(store, FOLDERS[number % len(FOLDERS)], part, name)
        with open(path, "wb") as file:
            file.write(raw)
        stamp = (1_200_000_000 + number * 7919) * 1_000_000_000 + number
        os.utime(path, ns=(stamp, stamp))
    return len(messages)


class CorpusTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        drive.program("TREVIXCTL")
        if not os.path.isdir(os.path.join(SHARED, "corpus", "mail")):
            drive.skip(f"no corpus of messages in {SHARED}")
        cls.parent = tempfile.mkdtemp(prefix="trevix-corpus-", dir=drive.scratch_parent())
        cls.addClassCleanup(shutil.rmtree, cls.parent, ignore_errors=True)
        cls.template = os.path.join(cls.parent, "template")
        cls.count = deliver_all(cls.template)
        cls.parser = mail_reader.Parser()
        cls.before = mail_reader.snapshot(cls.template, cls.parser)

    def new_archives(self, sandbox, after):
        """(where, bytes) of each archive that was not there before."""
        known = {leaf["sha"] for message in self.before["messages"] for leaf in message["leaves"]}
        for message in after["messages"]:
            for number, leaf in enumerate(message["leaves"]):
                if leaf["zip"] is not None and leaf["sha"] not in known:
                    yield (f"{message['path']}: {leaf['name']}",
                           mail_reader.read_leaf(sandbox.store, message, number))

    def check_with_unzip(self, sandbox, after):
        """Findings of unzip about the new archives, and how many there are."""
        unzip = shutil.which("unzip")
        findings, count = [], 0
        path = os.path.join(sandbox.root, "archive.zip")
        for where, data in self.new_archives(sandbox, after):
            count += 1
            if unzip:
                with open(path, "wb") as file:
                    file.write(data)
                done = subprocess.run([unzip, "-tqq", path], capture_output=True, text=True,
                                      errors="replace", stdin=subprocess.DEVNULL, check=False)
                if done.returncode != 0:
                    findings.append(f"{where}: unzip says {done.stdout}{done.stderr}")
        return findings, count

    def check_untreated(self, mode, after, findings):
        """Broken messages may be left alone, but they must be few."""
        untreated = [finding for finding in mail_reader.compare(self.before, after, mode,
                                                                complete=True)
                     if finding not in findings]
        print(f"{mode}: {len(untreated)} attachments left alone", *untreated, sep="\n  ",
              file=sys.stderr)
        self.assertLess(len(untreated), 20)

    def compress_and_judge(self, mode):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            done = sandbox.compress("--" + mode)
            self.assertIn(done.status, (drive.EXIT_DONE, drive.EXIT_SOME_FAILED), done.describe())
            after = sandbox.snapshot(self.parser)
            findings = mail_reader.compare(self.before, after, mode)
            self.check_untreated(mode, after, findings)
            by_unzip, archives = self.check_with_unzip(sandbox, after)
            again = sandbox.compress("--" + mode)
            self.assertIn(again.status, (drive.EXIT_DONE, drive.EXIT_SOME_FAILED),
                          again.describe())
            findings += by_unzip + mail_reader.compare(after, sandbox.snapshot(self.parser),
                                                       "unchanged")
            drive.report(self, f"{mode}: {self.count} messages, {archives} new archives", findings)
            self.assertGreater(archives, 50)

    def test_real_mail_survives_separate_compression(self):
        self.compress_and_judge("separate")

    def test_real_mail_survives_a_rollup(self):
        self.compress_and_judge("rollup")

    def test_a_rollup_after_a_separate_run_keeps_everything(self):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            for mode in ("separate", "rollup"):
                done = sandbox.compress("--" + mode)
                self.assertIn(done.status, (drive.EXIT_DONE, drive.EXIT_SOME_FAILED),
                              done.describe())
            findings = mail_reader.compare(self.before, sandbox.snapshot(self.parser))
            drive.report(self, "separate, then rollup", findings)

    def test_a_dry_run_changes_nothing(self):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            before = sandbox.snapshot(self.parser)
            done = sandbox.compress("-n")
            self.assertIn(done.status, (drive.EXIT_DONE, drive.EXIT_SOME_FAILED), done.describe())
            after = sandbox.snapshot(self.parser)
            self.assertEqual(mail_reader.compare(before, after, "unchanged"), [])
            self.assertEqual(after["others"], before["others"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
