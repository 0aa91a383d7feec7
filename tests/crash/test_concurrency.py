"""Other programs at work on the store while a run is going on.

The run is stopped at a system call, another program changes a message (or another run is started),
and the run goes on. What the other program did must stand, and no mail may be lost or doubled.
"""

import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import drive
import mail_reader
import other_program

MIN_SIZE = "500"
RUN = ("--no-index", "--separate", "--min-size", MIN_SIZE)
OTHER_PROGRAM = os.path.abspath(other_program.__file__)
ALLOWED = (drive.EXIT_DONE, drive.EXIT_SOME_FAILED)


class ConcurrencyTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        drive.program("TREVIXCTL")
        drive.require_tracing()
        cls.parent = tempfile.mkdtemp(prefix="trevix-two-", dir=drive.scratch_parent())
        cls.addClassCleanup(shutil.rmtree, cls.parent, ignore_errors=True)
        cls.template = os.path.join(cls.parent, "template")
        drive.make_store(cls.template, messages=4,
                         kinds="files,same_name_twice,own_log,picture_inside")
        cls.parser = mail_reader.Parser()
        cls.before = mail_reader.snapshot(cls.template, cls.parser)

    def calls_in_folder(self, folder):
        """Numbers of the writing calls of a run that concern message files of the folder."""
        with drive.Sandbox(self.parent, self.template) as sandbox:
            listing = os.path.join(sandbox.root, "calls")
            done = sandbox.compress(*RUN, runner=("count", "--arm-at", sandbox.root,
                                                  "--only-writing", "--list", listing))
            self.assertEqual(done.status, drive.EXIT_DONE, done.describe())
            places = [os.path.join(sandbox.store, folder, part) for part in ("new", "cur", "tmp")]
            with open(listing, encoding="utf-8", errors="replace") as lines:
                numbers = [int(line.split(" ", 1)[0]) for line in lines
                           if any(place in line for place in places)]
            return numbers

    def expected_after(self, action, message):
        """What the other program alone makes of the store."""
        with drive.Sandbox(self.parent, self.template) as sandbox:
            self.assertTrue(other_program.change(sandbox.store, action, message["message_id"],
                                                 message["path"]))
            return sandbox.snapshot(self.parser)

    def disturb(self, number, action, message, expected):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            script = shlex.join([sys.executable, "-S", "-E", OTHER_PROGRAM, sandbox.store, action,
                                 message["message_id"], message["path"]])
            done = sandbox.compress(*RUN, runner=("pause", str(number), "--arm-at", sandbox.root,
                                                  "--only-writing", "--exec", script))
            if done.status not in ALLOWED or "script failed" in done.runner:
                return done.describe()
            failure = sandbox.start_again(*RUN)
            findings = [failure] if failure else mail_reader.compare(
                expected, sandbox.snapshot(self.parser), "separate", int(MIN_SIZE))
            return done.runner + "\n".join(findings) if findings else None

    def sweep(self, action, part, seconds=12):
        """Disturbs the treatment of a message of the Inbox that lies in `part`."""
        message = next(m for m in self.before["messages"]
                       if m["part"] == part and any(leaf["disposition"] == "attachment"
                                                    for leaf in m["leaves"]))
        numbers = self.calls_in_folder(message["folder"])
        self.assertGreater(len(numbers), 5)
        expected = self.expected_after(action, message)
        failures, count = drive.in_parallel(
            lambda number: self.disturb(number, action, message, expected), numbers,
            drive.budget(seconds))
        drive.report(self, f"{action}: done at {count} of {len(numbers)} calls", failures)

    def test_a_flag_set_meanwhile_stands(self):
        self.sweep("flag", "cur")

    def test_a_message_read_meanwhile_stays_in_cur(self):
        self.sweep("read", "new")

    def test_a_message_deleted_meanwhile_stays_deleted(self):
        self.sweep("delete", "cur")

    def test_a_message_moved_meanwhile_stays_moved(self):
        self.sweep("move", "cur")

    def test_a_message_delivered_meanwhile_is_there(self):
        self.sweep("deliver", "cur")

    def second_run(self, number):
        """Another whole run while the first one stands still."""
        with drive.Sandbox(self.parent, self.template) as sandbox:
            note = os.path.join(sandbox.root, "second")
            script = shlex.join(sandbox.command("compress", *RUN)) \
                + f" >/dev/null 2>&1; echo $? > {shlex.quote(note)}"
            done = sandbox.compress(*RUN, runner=("pause", str(number), "--arm-at", sandbox.root,
                                                  "--only-writing", "--exec", script))
            with open(note, encoding="ascii") as file:
                second = int(file.read())
            busy = (*ALLOWED, drive.EXIT_BUSY)
            # The first run may stand still with the results message locked; the second gives up then.
            if done.status not in busy or second not in (*busy, drive.EXIT_FAILED):
                return f"second run: exit {second}; first: {done.describe()}"
            failure = sandbox.start_again(*RUN)
            findings = [failure] if failure else mail_reader.compare(
                self.before, sandbox.snapshot(self.parser), "separate", int(MIN_SIZE))
            return done.runner + "\n".join(findings) if findings else None

    def test_a_run_inside_a_run_loses_nothing(self):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            done = sandbox.compress(*RUN, runner=("count", "--arm-at", sandbox.root,
                                                  "--only-writing"))
            total = int(done.runner.split("counted ")[1].split()[0])
        failures, count = drive.in_parallel(self.second_run, range(1, total + 1),
                                            drive.budget(25))
        drive.report(self, f"second run started at {count} of {total} calls", failures)

    def test_two_runs_side_by_side_lose_nothing(self):
        for _ in range(4):
            with drive.Sandbox(self.parent, self.template) as sandbox:
                runs = [subprocess.Popen(sandbox.command("compress", *RUN),
                                         env=sandbox.environment(), stdout=subprocess.DEVNULL,
                                         stderr=subprocess.PIPE, text=True) for _ in range(2)]
                for run in runs:
                    _, err = run.communicate(timeout=drive.RUN_SECONDS)
                    self.assertIn(run.returncode, (*ALLOWED, drive.EXIT_BUSY), err)
                self.assertIsNone(sandbox.start_again(*RUN))
                self.assertEqual(mail_reader.compare(self.before, sandbox.snapshot(self.parser),
                                                     "separate", int(MIN_SIZE)), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
