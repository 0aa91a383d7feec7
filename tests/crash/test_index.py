"""The attachment index of a real store, made by the built program.

A run is killed at system calls: the mail is untouched, and the next update gives a new index's
rows. Random histories of what happens to a Maildir (mail comes, goes, moves, gets flags, is
restored with old times; folders come and go; runs are killed; the cache is deleted; attachments are
compressed) end in an update, which must give a new index's rows as well.
"""

import hashlib
import json
import os
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import drive


def free_lock(store):
    """Lets go of the run lock of a dead process, as five minutes would."""
    with sqlite3.connect(os.path.join(store, "trevix-associated.db"), timeout=20) as database:
        database.execute("UPDATE property SET value = ? WHERE name = 'StartCI'", (bytes(8),))
    database.close()


def messages_of(store):
    """Path and digest of every delivered message."""
    found = {}
    for path, _, files in os.walk(store):
        if os.path.basename(path) not in ("new", "cur"):
            continue
        for name in files:
            full = os.path.join(path, name)
            with open(full, "rb") as message:
                found[os.path.relpath(full, store)] = hashlib.sha256(message.read()).hexdigest()
    return found


class IndexTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        drive.program("TREVIXCTL")
        cls.parent = tempfile.mkdtemp(prefix="trevix-index-", dir=drive.scratch_parent())
        cls.addClassCleanup(shutil.rmtree, cls.parent, ignore_errors=True)
        cls.template = os.path.join(cls.parent, "template")
        drive.make_store(cls.template)
        cls.more = os.path.join(cls.parent, "more")
        drive.make_store(cls.more, seed="more")

    def index(self, sandbox, *arguments, runner=()):
        return sandbox.run(sandbox.command("index", *arguments), runner)

    def rows(self, sandbox):
        """The saved index, one text a row, in an order that does not hang on the index's."""
        done = sandbox.run(sandbox.command("find", "--json"))
        events = [json.loads(line) for line in done.out.splitlines()]
        rows = [event for event in events if event["event"] == "row"]
        for row in rows:
            row.pop("Row")
        return sorted(json.dumps(row, sort_keys=True) for row in rows)

    def compare_with_a_new_index(self, sandbox):
        """None, or how an update differs from an index that is made from nothing."""
        done = self.index(sandbox)
        if done.status != drive.EXIT_DONE:
            return "the update failed: " + done.describe()
        updated = self.rows(sandbox)
        done = self.index(sandbox, "--rebuild")
        if done.status != drive.EXIT_DONE:
            return "the new index failed: " + done.describe()
        anew = self.rows(sandbox)
        if updated == anew:
            return None
        missing = [row for row in anew if row not in updated]
        surplus = [row for row in updated if row not in anew]
        return f"missing {missing[:3]}\nsurplus {surplus[:3]}\n{len(updated)} {len(anew)}"


class KilledIndexTest(IndexTest):
    def prepare(self, sandbox):
        """An index, and a store that has changed since."""
        done = self.index(sandbox)
        self.assertEqual(done.status, drive.EXIT_DONE, done.describe())
        messages = sorted(messages_of(sandbox.store))
        os.remove(os.path.join(sandbox.store, messages[0]))
        flagged = os.path.join(sandbox.store, messages[1])
        os.rename(flagged, flagged + "F")
        for path in sorted(messages_of(self.more))[:3]:
            target = os.path.join(sandbox.store, "cur", os.path.basename(path))
            shutil.copyfile(os.path.join(self.more, path), target)

    def kill_and_judge(self, number, arguments):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            self.prepare(sandbox)
            before = messages_of(sandbox.store)
            rows = self.rows(sandbox)
            killed = self.index(sandbox, *arguments,
                                runner=("kill", str(number), "--arm-at", sandbox.root))
            if killed.reached and killed.status != drive.EXIT_KILLED:
                return "not killed: " + killed.describe()
            found = []
            if messages_of(sandbox.store) != before:
                found.append("the mail changed")
            if killed.reached and not rows:
                found.append("no rows to begin with")
            free_lock(sandbox.store)
            found.append(self.compare_with_a_new_index(sandbox))
            if messages_of(sandbox.store) != before:
                found.append("the mail changed afterwards")
            left = [name for name in sandbox.temporary_entries()
                    if name.endswith((".adtg", ".zip"))]
            if left:
                found.append(f"left in the temporary directory: {left}")
            found = [text for text in found if text]
            return killed.runner + "\n".join(found) if found else None

    def sweep(self, arguments, seconds):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            self.prepare(sandbox)
            listing = os.path.join(sandbox.root, "calls")
            done = self.index(sandbox, *arguments,
                              runner=("count", "--arm-at", sandbox.root, "--list", listing))
            self.assertEqual(done.status, drive.EXIT_DONE, done.describe())
            with open(listing, encoding="utf-8", errors="replace") as lines:
                numbers = [int(line.split(" ", 1)[0]) for line in lines]
        self.assertGreater(len(numbers), 100)
        failures, count = drive.in_parallel(
            lambda number: self.kill_and_judge(number, arguments), numbers, drive.budget(seconds))
        drive.report(self, f"index {arguments}: killed at {count} of {len(numbers)} calls",
                     failures)

    def test_a_killed_update_is_made_up_for_by_the_next(self):
        drive.require_tracing()
        self.sweep((), 30)

    def test_a_killed_new_index_is_made_up_for_by_the_next(self):
        drive.require_tracing()
        self.sweep(("--rebuild",), 20)


class History:
    """What happens to a store, made up from a seed."""

    def __init__(self, test, sandbox, seed):
        self.test = test
        self.sandbox = sandbox
        self.dice = random.Random(seed)
        self.spare = sorted(messages_of(test.more))
        self.kept = None
        self.number = 0
        self.told = []

    def folders(self):
        found = [self.sandbox.store]
        for path, names, _ in os.walk(self.sandbox.store):
            found += [os.path.join(path, name) for name in names
                      if os.path.isdir(os.path.join(path, name, "cur"))]
        return sorted(found)

    def any_folder(self):
        return self.dice.choice(self.folders())

    def any_message(self):
        messages = sorted(messages_of(self.sandbox.store))
        return os.path.join(self.sandbox.store, self.dice.choice(messages)) if messages else None

    def deliver(self):
        self.number += 1
        source = os.path.join(self.test.more, self.dice.choice(self.spare))
        name = f"{1200000000 + self.number}.M{self.number}P1.host"
        place = self.dice.choice(("new", "cur"))
        target = os.path.join(self.any_folder(), place, name + ("" if place == "new" else ":2,S"))
        shutil.copyfile(source, target)
        if self.dice.random() < 0.3:
            os.utime(target, (1000000000, 1000000000))

    def remove(self):
        message = self.any_message()
        if message:
            os.remove(message)

    def keep(self):
        """Puts a copy aside, with its times, to restore it later."""
        message = self.any_message()
        if message:
            self.kept = (os.path.join(self.sandbox.root, "aside"), os.path.basename(message))
            shutil.copy2(message, self.kept[0])

    def restore(self):
        if self.kept:
            shutil.copy2(self.kept[0], os.path.join(self.any_folder(), "cur", self.kept[1]))

    def move(self):
        message = self.any_message()
        if message:
            os.rename(message, os.path.join(self.any_folder(), "cur", os.path.basename(message)))

    def flag(self):
        message = self.any_message()
        if message and ":2," in message:
            os.rename(message, message.split(":2,")[0] + ":2," +
                      self.dice.choice(("", "S", "FS", "RS")))

    def add_folder(self):
        self.number += 1
        for place in ("cur", "new", "tmp"):
            os.makedirs(os.path.join(self.sandbox.store, f".Extra{self.number}", place))

    def change_folder(self):
        extra = [path for path in self.folders()
                 if os.path.basename(path).startswith(".Extra")]
        if not extra:
            return
        folder = self.dice.choice(extra)
        if self.dice.random() < 0.5:
            shutil.rmtree(folder)
        else:
            os.rename(folder, folder + "x")

    def forget(self):
        shutil.rmtree(self.sandbox.cache, ignore_errors=True)
        os.mkdir(self.sandbox.cache, 0o700)

    def compress(self):
        self.sandbox.compress("--min-size", "500")

    def update(self):
        self.test.index(self.sandbox)

    def chained(self):
        self.sandbox.run(self.sandbox.command("compress", "--min-size", "500"))

    def killed(self):
        arguments = ("--rebuild",) if self.dice.random() < 0.3 else ()
        with subprocess.Popen(self.sandbox.command("index", *arguments),
                              env=self.sandbox.environment(), stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL) as process:
            time.sleep(self.dice.random() * 0.12)
            process.send_signal(self.dice.choice((signal.SIGKILL, signal.SIGINT)))
        free_lock(self.sandbox.store)

    def step(self):
        name = self.dice.choice(
            ("deliver", "deliver", "deliver", "remove", "keep", "restore", "restore", "move",
             "move", "flag", "add_folder", "change_folder", "forget", "compress",
             "update", "update", "update", "chained", "killed"))
        self.told.append(name)
        getattr(self, name)()


class IndexHistoryTest(IndexTest):
    def live(self, seed):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            history = History(self, sandbox, seed)
            history.update()
            for _ in range(3):
                for _ in range(14):
                    history.step()
                different = self.compare_with_a_new_index(sandbox)
                if different:
                    return f"seed {seed}: {different}\n{' '.join(history.told)}"
            return None

    def test_an_update_gives_the_rows_of_a_new_index_after_any_history(self):
        failures, count = drive.in_parallel(self.live, range(400), drive.budget(40))
        drive.report(self, f"{count} histories", failures)


if __name__ == "__main__":
    unittest.main(verbosity=2)
