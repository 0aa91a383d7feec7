"""Indexes a store of real messages and compares every row with what another program saw in them.

The messages lie in corpus/mail of a folder beside the repository (or named by TREVIX_SHARED),
together with what Python's own mail and zip readers found in them (TRUTH.jsonl). Where the two
differ, index_differences.tsv says how and why; a difference that is not listed fails the test, and
so does a listed one that is none any more.

    test_index_corpus.py --write-differences FILE     writes the list anew, reasons taken over
"""

import csv
import datetime
import io
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import drive

SHARED = os.environ.get("TREVIX_SHARED") or os.path.join(
    os.path.dirname(drive.REPOSITORY), "shared")
CORPUS = os.path.join(SHARED, "corpus", "mail")
DIFFERENCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "index_differences.tsv")
FIRST = 1_200_000_000
NO_REASON = "?"


def truths():
    with open(os.path.join(CORPUS, "TRUTH.jsonl"), encoding="utf-8") as lines:
        return [json.loads(line) for line in lines]


def received(number):
    """When message `number` was received: what tells whose row is whose."""
    return FIRST + 60 * number


def deliver(store, messages):
    for part in ("new", "cur", "tmp"):
        os.makedirs(os.path.join(store, part))
    for number, truth in enumerate(messages):
        path = os.path.join(store, "cur", f"{received(number)}.M{number}P3.host:2,S")
        shutil.copyfile(os.path.join(CORPUS, truth["file"]), path)
        os.utime(path, (received(number), received(number)))


def row_text(name, size, in_zip="", packed=0):
    """A row as one line of text: NAME SIZE, or ZIP/NAME SIZE PACKED."""
    text = f"{in_zip}/{name} {size} {packed}" if in_zip else f"{name} {size}"
    return "".join(f"\\x{ord(c):02x}" if ord(c) < 32 or c in "\\\ufffd" else c for c in text)


def is_zip(name):
    return name.rsplit(".", 1)[-1].lower() == "zip"


def wanted_rows(truth):
    """What the index is to say of a message, by the other program: its attachments, and of those
    that are called .zip the files in them."""
    rows = []
    for part in truth["parts"]:
        if not part["is_attachment"] or part["embedded_in"] is not None:
            continue
        name = part["filename"] or ""
        if not is_zip(name):
            rows.append(row_text(name, part["size"]))
            continue
        for entry in part.get("zip", {}).get("entries", ()):
            base = entry["name"].rsplit("/", 1)[-1]
            if base:
                rows.append(row_text(base, entry["size"], name, entry["compressed_size"]))
    return rows


def rows_by_message(table):
    """The rows that find --csv gives, by the moment when their message was received."""
    found = {}
    for row in csv.DictReader(io.StringIO(table, newline=""), strict=True):
        in_zip = row["ZipFile"] if int(row["ZipIndex"]) >= 0 else ""
        packed = int(row["FileIndex"])
        found.setdefault(row["Received"], []).append(
            row_text(row["FileName"], row["FileSize"], in_zip, packed))
    return found


def iso(seconds):
    return datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).strftime(
        "%Y-%m-%dT%H:%M:%S")


def differences(ours, theirs):
    """The rows of one list that the other lacks, each by "ours" or "theirs"."""
    left = list(theirs)
    found = []
    for row in ours:
        if row in left:
            left.remove(row)
        else:
            found.append(("ours", row))
    return found + [("theirs", row) for row in left]


def read_differences(path):
    """{(file, side, row): reason}; a row may be there several times, and is then numbered."""
    with open(path, encoding="utf-8") as lines:
        cells = [line.rstrip("\n").split("\t") for line in lines
                 if line.strip() and not line.startswith("#")]
    return {tuple(line[:3]): line[3] for line in cells}


class IndexCorpusTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        drive.program("TREVIXCTL")
        if not os.path.isdir(CORPUS):
            drive.skip(f"no corpus of messages in {SHARED}")
        cls.parent = tempfile.mkdtemp(prefix="trevix-corpus-", dir=drive.scratch_parent())
        cls.addClassCleanup(shutil.rmtree, cls.parent, ignore_errors=True)
        cls.messages = truths()
        cls.template = os.path.join(cls.parent, "template")
        deliver(cls.template, cls.messages)

    @staticmethod
    def find_csv(sandbox):
        done = subprocess.run(sandbox.command("find", "--csv"), env=sandbox.environment(),
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              timeout=drive.RUN_SECONDS, check=False)
        assert done.returncode == 0, done.stderr
        return done.stdout.decode("utf-8")

    def found_differences(self):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            done = sandbox.run(sandbox.command("index", "--quiet"))
            self.assertIn(done.status, (drive.EXIT_DONE, drive.EXIT_SOME_FAILED), done.describe())
            table = self.find_csv(sandbox)
        ours = rows_by_message(table)
        self.assertLessEqual(set(ours), {iso(received(n)) for n in range(len(self.messages))})
        found = set()
        rows = 0
        for number, truth in enumerate(self.messages):
            of_message = ours.get(iso(received(number)), [])
            rows += len(of_message)
            for side, row in differences(of_message, wanted_rows(truth)):
                key = (truth["file"], side, row)
                while key in found:
                    key = key[:2] + (key[2] + " again",)
                found.add(key)
        return found, rows

    def test_rows_are_those_that_another_program_sees(self):
        found, rows = self.found_differences()
        explained = read_differences(DIFFERENCES)
        self.assertGreater(rows, 700)
        self.assertEqual(sorted(found - set(explained)), [], "no reason is given for these")
        self.assertEqual(sorted(set(explained) - found), [], "these differ no more")
        self.assertNotIn(NO_REASON, explained.values())

    def test_an_update_and_a_new_index_say_the_same(self):
        with drive.Sandbox(self.parent, self.template) as sandbox:
            tables = []
            for arguments in ((), (), ("--rebuild",)):
                done = sandbox.run(sandbox.command("index", "--quiet", *arguments))
                self.assertIn(done.status, (drive.EXIT_DONE, drive.EXIT_SOME_FAILED),
                              done.describe())
                # In what order is no matter: a message that is new enough is looked at again.
                tables.append(sorted(line.split(",", 1)[1]
                                     for line in self.find_csv(sandbox).split("\r\n") if line))
            self.assertEqual(tables[0], tables[1])
            self.assertEqual(tables[0], tables[2])


def write_differences(path):
    old = read_differences(path) if os.path.exists(path) else {}
    IndexCorpusTest.setUpClass()
    found, rows = IndexCorpusTest("found_differences").found_differences()
    with open(path, "w", encoding="utf-8") as file:
        file.write("# Rows of the index that another program sees otherwise: message, who has the\n"
                   "# row, the row, and why ours is meant. Kept by test_index_corpus.py.\n")
        for key in sorted(found):
            file.write("\t".join(key + (old.get(key, NO_REASON),)) + "\n")
    print(f"{rows} rows, {len(found)} differences")


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "--write-differences":
        write_differences(sys.argv[2])
    else:
        unittest.main(verbosity=2)
