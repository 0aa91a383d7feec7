#!/usr/bin/env python3
"""What trevixctl find and extract do."""

import csv
import io
import os
import resource
import signal
import sqlite3
import stat
import zipfile

import ctl
from index_case import LINK, IndexCase, deliver, zip_of

COLUMNS = ["FileName", "FileIndex", "FileDate", "FileSize", "ZipIndex", "ZipFile", "Folder",
           "EntryID", "StoreID", "Subject", "From", "Sender", "To", "DisplayTo", "Received",
           "FolderKey"]


class Find(IndexCase):
    def setUp(self):
        super().setUp()
        ctl.make_folder(self.mail)
        for name in (".Archive", ".Archive.2019"):
            ctl.make_folder(os.path.join(self.mail, name))
        deliver(self.mail, 1, [("Report.DOC", b"r" * 2000), ("image.png", b"i" * 500)],
                Subject="The yearly report", From="Ann Archer <ann@example.org>",
                To="Ben Baker <ben@example.org>, cy@example.net", received=1191600000)
        deliver(os.path.join(self.mail, ".Archive"), 2,
                [("papers.zip", zip_of(("docs/plan.txt", "p" * 30000), ("notes.txt", "n" * 10)))],
                Subject="Entwürfe für GRÖßE", From="Zoë Ödön <zoe@example.com>",
                received=1199145600)
        deliver(os.path.join(self.mail, ".Archive.2019"), 3, [("отчёт.xls", b"o" * 100)],
                Subject='quote " and, comma', received=1560000000)
        self.index()

    def test_shows_an_aligned_table(self):
        done = self.find()
        lines = done.stdout.splitlines()
        self.assertEqual(lines[0].split(),
                         ["Row", "Name", "Size", "Date", "In", "Folder", "From", "Subject"])
        self.assertEqual(len(lines), 6)
        column = lines[0].index("Date")
        self.assertTrue(all(line[column:column + 4] in ("Date", "2007", "2008", "2019")
                            for line in lines))
        self.assertIn("papers.zip", done.stdout)
        self.assertIn("5 attachments, 31.8 KB", done.stderr)

    def test_words_look_at_name_subject_sender_and_recipients(self):
        for words, names in ((["REPORT"], ["Report.DOC", "image.png"]),
                             (["report.doc"], ["Report.DOC"]),
                             (["report", "png"], ["image.png"]),
                             (["cy@example"], ["Report.DOC", "image.png"]),
                             (["ann@"], ["Report.DOC", "image.png", "отчёт.xls"]),
                             (["nothing like it"], [])):
            self.assertEqual(self.names(*words), names, words)

    def test_words_are_found_in_any_case_of_any_script(self):
        inside = ["notes.txt", "plan.txt"]
        for word, names in (("größe", inside), ("ENTWÜRFE", inside), ("ZOE@", inside),
                            ("ОТЧЁТ", ["отчёт.xls"]), ("grosse", [])):
            self.assertEqual(self.names(word), names, word)

    def test_each_filter_chooses(self):
        for arguments, names in (
                (["--name", "*.doc"], ["Report.DOC"]), (["--name", "report"], []),
                (["--name", "?????.*"], ["image.png", "notes.txt", "отчёт.xls"]),
                (["--from", "zoe@"], ["notes.txt", "plan.txt"]),
                (["--to", "ben", "--from", "ann", "--larger", "1k"], ["Report.DOC"]),
                (["--subject", "yearly"], ["Report.DOC", "image.png"]),
                (["--folder", "archive/2019"], ["отчёт.xls"]),
                (["--folder", "ARCHIVE"], ["notes.txt", "plan.txt", "отчёт.xls"]),
                (["--larger", "499"], ["Report.DOC", "image.png", "plan.txt"]),
                (["--larger", "500"], ["Report.DOC", "plan.txt"]),
                (["--smaller", "100"], ["notes.txt"]),
                (["--larger", "10", "--smaller", "0.5k"], ["image.png", "отчёт.xls"]),
                (["--since", "2008-01-01"], ["notes.txt", "plan.txt", "отчёт.xls"]),
                (["--since", "2008", "--until", "2008"], ["notes.txt", "plan.txt"]),
                (["--until", "2007-10"], ["Report.DOC", "image.png"]),
                (["--until", "2007-10-04"], []),
                (["--since", "2007-10-05", "--until", "2007-10-05"], ["Report.DOC", "image.png"]),
                (["--since", "7d"], []), (["--until", "1y", "--in-zip"],
                                          ["notes.txt", "plan.txt"]),
                (["--in-zip"], ["notes.txt", "plan.txt"]),
                (["txt", "--in-zip", "--larger", "1k"], ["plan.txt"])):
            self.assertEqual(self.names(*arguments), names, arguments)

    def test_days_are_those_of_the_time_zone(self):
        # Received on 2007-10-05 at 16:00 UTC.
        done = self.find("--since", "2007-10-06", "--until", "2007-10-06", "--count",
                         TZ="Asia/Tokyo")
        self.assertEqual(done.stdout, "2\n")
        self.find("--since", "2007-10-06", "--until", "2007-10-06", "--count", status=1)
        self.assertIn("2007-10-06", self.find("yearly", TZ="Asia/Tokyo").stdout)

    def test_json_has_all_columns_and_the_row(self):
        rows = self.rows()
        self.assertEqual([row["Row"] for row in rows], [1, 2, 3, 4, 5])
        for row in rows:
            self.assertEqual(list(row), ["event", "Row"] + COLUMNS)
        by_name = {row["FileName"]: row for row in rows}
        self.assertEqual(by_name["Report.DOC"]["FileSize"], 2000)
        self.assertEqual(by_name["Report.DOC"]["ZipIndex"], -1)
        self.assertEqual(by_name["Report.DOC"]["Received"], "2007-10-05T16:00:00")
        self.assertEqual(by_name["plan.txt"]["ZipFile"], "papers.zip")
        self.assertEqual(by_name["plan.txt"]["FileDate"], "2007-10-01T12:00:00")
        self.assertEqual(by_name["notes.txt"]["ZipIndex"], 1)
        self.assertEqual(by_name["отчёт.xls"]["Subject"], 'quote " and, comma')

    def test_csv_says_the_same_as_json(self):
        done = self.find("--csv")
        self.assertEqual(done.stderr, "")
        with_line_ends = ctl.subprocess.run(
            [ctl.TREVIXCTL, "find", "--maildir", self.mail, "--csv"], env=self.environment(),
            stdout=ctl.subprocess.PIPE, check=True).stdout.decode()
        self.assertEqual(with_line_ends.count("\r\n"), 6)
        table = list(csv.reader(io.StringIO(with_line_ends, newline=""), strict=True))
        self.assertEqual(table[0], ["Row"] + COLUMNS)
        as_text = lambda value: "" if value is None else str(value)
        self.assertEqual(table[1:], [[as_text(row[name]) for name in ["Row"] + COLUMNS]
                                     for row in self.rows()])

    def test_counts_and_sums(self):
        self.assertEqual(self.find("--count", "--in-zip").stdout, "2\n")
        self.assertEqual(self.find("--sum", "--in-zip").stdout, "30010\n")
        self.assertEqual(self.find("--count", "--sum", "txt").stdout, "2\n30010\n")
        self.assertEqual(self.find("--count", "nothing", status=1).stdout, "0\n")
        summary = self.events(self.find("--count", "--json", "txt"))
        self.assertEqual(len(summary), 1)
        self.assertEqual((summary[0]["count"], summary[0]["bytes"]), (2, 30010))

    def test_nothing_found_is_exit_1_and_said(self):
        done = self.find("nothing at all", status=1)
        self.assertEqual((done.stdout, done.stderr), ("", "no attachment matches\n"))
        self.assertEqual(self.rows("nothing at all", status=1), [])

    def test_writes_nothing_to_the_store(self):
        before = ctl.snapshot(self.mail, os.path.join(self.scratch, "home", ".config"))
        temporary = sorted(os.listdir(os.path.join(self.scratch, "tmp")))
        self.find()
        self.extract("--all")
        self.assertEqual(ctl.snapshot(self.mail, os.path.join(self.scratch, "home", ".config")),
                         before)
        self.assertEqual(sorted(os.listdir(os.path.join(self.scratch, "tmp"))), temporary)

    def test_a_read_only_store_can_be_searched(self):
        self.as_ordinary_user()
        for directory, _, files in os.walk(self.mail):
            for name in files:
                os.chmod(os.path.join(directory, name), 0o400)
            os.chmod(directory, 0o500)
        self.addCleanup(lambda: [os.chmod(directory, 0o700)
                                 for directory, _, _ in os.walk(self.mail)])
        self.assertEqual(self.names("--name", "*.doc"), ["Report.DOC"])

    def test_wrong_arguments_are_refused_before_anything_is_read(self):
        for arguments in (["--larger", "big"], ["--smaller", "-5"], ["--since", "yesterday"],
                          ["--until", "2007-02-30"], ["--json", "--csv"], ["--csv", "--count"],
                          ["--nonsense"], ["--name"]):
            done = self.ctl("find", "--maildir", "/nonexistent", *arguments, status=2)
            self.assertTrue(done.stderr.startswith("trevixctl: "), done.stderr)
            self.assertIn("trevixctl find --help", done.stderr)

    def test_help_shows_an_example_of_each_command(self):
        for command in ("index", "find", "extract"):
            done = self.ctl(command, "--help")
            self.assertIn(f"  trevixctl {command} ", done.stdout.split("Example:")[1])


class WithoutIndex(IndexCase):
    def setUp(self):
        super().setUp()
        self.make_store(1)

    def test_a_store_without_an_index_says_what_to_run(self):
        for command in ("find", "extract"):
            done = self.ctl(command, "--maildir", self.mail, "word", status=1)
            self.assertEqual(done.stderr, "trevixctl: index: this store has no attachment index "
                                          'yet; run "trevixctl index"\n')
            self.assertFalse(os.path.exists(os.path.join(self.mail, "trevix-associated.db")))

    def test_a_damaged_index_is_said_to_be_so(self):
        self.index()
        with sqlite3.connect(os.path.join(self.mail, "trevix-associated.db")) as database:
            good = database.execute(
                "SELECT content FROM attachment WHERE name = 'txattach.zip'").fetchone()[0]
        database.close()
        with zipfile.ZipFile(io.BytesIO(good)) as archive:
            adtg = archive.read("txattach.adtg")
        for content in (b"", b"no archive", good[:len(good) // 2], zip_of(("other.txt", "x")),
                        zip_of(("txattach.adtg", "no record set")),
                        zip_of(("txattach.adtg", adtg[:len(adtg) // 2]))):
            self.saved_index(content)
            for command in ("find", "extract"):
                done = self.ctl(command, "--maildir", self.mail, "a0", status=1)
                self.assertIn("the saved attachment index is damaged", done.stderr)
                self.assertIn("trevixctl index --rebuild", done.stderr)

    def test_a_deleted_index_is_one_that_is_not_there(self):
        self.index()
        self.saved_index(None)
        self.assertIn("no attachment index yet", self.find(status=1).stderr)


class Extract(IndexCase):
    def setUp(self):
        super().setUp()
        ctl.make_folder(self.mail)

    def test_saves_a_plain_attachment_exactly(self):
        content = bytes(range(256)) * 300 + b"end"
        deliver(self.mail, 1, [("data.bin", content), ("other.bin", b"o")])
        self.index()
        done = self.extract("data.bin")
        self.assertEqual(self.read_bytes("data.bin"), content)
        self.assertEqual(self.saved(), ["data.bin"])
        self.assertEqual(done.stdout, os.path.join(self.into, "data.bin") + "\n")
        self.assertEqual(done.stderr, "1 saved\n")
        mode = stat.S_IMODE(os.stat(os.path.join(self.into, "data.bin")).st_mode)
        self.assertEqual(mode, 0o600)

    def test_saves_into_the_working_directory_by_default(self):
        deliver(self.mail, 1, [("data.bin", b"d")])
        self.index()
        done = self.ctl("extract", "--maildir", self.mail, "--row", "1")
        self.assertEqual(done.stdout, "data.bin\n")
        self.assertTrue(os.path.isfile(os.path.join(self.scratch, "data.bin")))

    def test_saves_files_from_inside_an_archive(self):
        deliver(self.mail, 1, [("papers.zip", zip_of(("docs/plan.txt", "p" * 100000),
                                                     ("docs/", ""), ("other/plan.txt", "second"),
                                                     ("stored.txt", "s")))])
        self.index()
        self.extract("--in-zip")
        self.assertEqual(self.saved(), ["plan (2).txt", "plan.txt", "stored.txt"])
        self.assertEqual(self.read_bytes("plan.txt"), b"p" * 100000)
        self.assertEqual(self.read_bytes("plan (2).txt"), b"second")

    def test_saves_what_a_compression_run_has_zipped(self):
        self.mail = os.path.join(self.scratch, "Sample")
        self.make_store()
        self.compress()
        self.extract("--all")
        self.assertEqual(len(self.saved()), 8)
        for name in self.saved():
            self.assertEqual(self.read_bytes(name).decode(), ctl.text_of(name.split(".")[0], 20000))

    def test_same_names_never_overwrite_each_other(self):
        deliver(self.mail, 1, [("a.txt", b"first"), ("a.txt", b"second")])
        deliver(self.mail, 2, [("a.txt", b"third"),
                               ("z.zip", zip_of(("a.txt", "fourth"))),
                               ("z.zip", zip_of(("a.txt", "fifths")))])
        self.index()
        self.extract("--all")
        self.assertEqual(self.saved(), ["a (2).txt", "a (3).txt", "a (4).txt", "a (5).txt",
                                        "a.txt"])
        contents = {self.read_bytes(name) for name in self.saved()}
        self.assertEqual(contents, {b"first", b"second", b"third", b"fourth", b"fifths"})
        before = ctl.snapshot(self.into)
        self.extract("--all")
        self.assertEqual(len(self.saved()), 10)
        after = ctl.snapshot(self.into)
        for path, about in before.items():
            if os.path.isfile(path):
                self.assertEqual(after[path], about)

    def test_rows_choose_each_of_the_same_name(self):
        deliver(self.mail, 1, [("a.txt", b"first"), ("a.txt", b"other")])
        self.index()
        for row in self.rows():
            self.extract("--row", str(row["Row"]))
        self.assertEqual(self.read_bytes("a.txt"), b"first")
        self.assertEqual(self.read_bytes("a (2).txt"), b"other")

    def test_several_rows_and_filters_together(self):
        deliver(self.mail, 1, [("a.txt", b"a"), ("b.txt", b"b"), ("c.txt", b"c")])
        self.index()
        self.extract("--row", "3", "--row", "1", "--name", "[ab].txt")
        self.assertEqual(self.saved(), ["a.txt"])

    def test_hostile_names_stay_inside_the_directory(self):
        names = ["../up.txt", "/abs.txt", "-rf", ".hidden", "a\x1b[2J.txt", "..", "c\\d.txt",
                 "\u202egpj.exe", "n" * 230 + ".txt"]
        deliver(self.mail, 1, [(f"{number}.bin", b"x") for number in range(2)])
        raw = b"".join([
            b"From: ann@example.org\r\nSubject: names\r\nMIME-Version: 1.0\r\n"
            b"Content-Type: multipart/mixed; boundary=b\r\n\r\n"] + [
                b"--b\r\nContent-Type: application/octet-stream\r\n"
                b"Content-Disposition: attachment; filename*=utf-8''" +
                "".join(f"%{byte:02X}" for byte in name.encode()).encode() + b"\r\n\r\n" +
                str(number).encode() + b"\r\n" for number, name in enumerate(names)] +
            [b"--b--\r\n"])
        deliver(self.mail, 2, raw=raw)
        deliver(self.mail, 3, [("evil.zip", zip_of(("../../escape.txt", "evil"),
                                                   ("/etc/absolute.txt", "evil")))])
        self.index()
        outside = set(os.listdir(self.scratch))
        self.extract("--all")
        self.assertEqual(set(os.listdir(self.scratch)) - outside, {"out"})
        for name in self.saved():
            self.assertTrue(os.path.isfile(os.path.join(self.into, name)))
            self.assertNotIn(name[0], "-.")
            self.assertLessEqual(len(name.encode()), 255)
            self.assertFalse(any(ord(c) < 32 or c in "\\\u202e" for c in name), name)
        self.assertIn("escape.txt", self.saved())
        self.assertIn("absolute.txt", self.saved())
        self.assertTrue(any(name.startswith("nnn") and name.endswith(".txt")
                            for name in self.saved()))
        table = self.find().stdout
        self.assertFalse(any(ord(c) < 32 and c != "\n" for c in table))
        self.assertNotIn("\u202e", table)

    def test_a_message_that_has_gone_fails_and_the_rest_is_saved(self):
        path = deliver(self.mail, 1, [("gone.txt", b"g")])
        deliver(self.mail, 2, [("here.txt", b"h")])
        self.index()
        os.unlink(path)
        done = self.extract("--all", status=3)
        self.assertEqual(self.saved(), ["here.txt"])
        self.assertIn("gone.txt: its message is not there any more", done.stderr)
        self.assertIn('"trevixctl index" updates it', done.stderr)
        self.assertIn("1 saved, 1 failed", done.stderr)
        done = self.extract("gone", "--json", status=1)
        self.assertEqual((self.events(done)[-1]["saved"], self.events(done)[-1]["failed"]), (0, 1))
        self.assertEqual(self.saved(), ["here.txt"])

    def test_an_index_older_than_the_compression_fails_row_by_row(self):
        deliver(self.mail, 1, [("a.txt", ctl.text_of("a", 50000).encode())])
        self.index()
        self.compress("--no-index")
        done = self.extract("a.txt", status=1)
        self.assertRegex(done.stderr, "row 1, a.txt: its message (is not there|has no such)")
        self.assertIn('"trevixctl index" updates it', done.stderr)
        self.assertEqual(self.saved(), [])
        self.index()
        self.extract("a.txt")
        self.assertEqual(self.read_bytes("a.txt").decode(), ctl.text_of("a", 50000))

    def test_a_link_is_told_and_not_saved(self):
        deliver(self.mail, 1, raw=LINK)
        self.index()
        rows = self.rows()
        self.assertEqual([(row["FileName"], row["ZipIndex"]) for row in rows], [("plan.pdf", -2)])
        done = self.extract("--all", status=1)
        self.assertIn("only a link to a file", done.stderr)
        self.assertEqual(self.saved(), [])

    def test_a_damaged_member_leaves_no_file(self):
        archive = bytearray(zip_of(("good.txt", "g" * 3000), ("bad.txt", ctl.text_of("b", 9000))))
        place = archive.index(b"bad.txt") + len("bad.txt") + 200
        archive[place] ^= 0xFF
        deliver(self.mail, 1, [("damaged.zip", bytes(archive))])
        self.index()
        done = self.extract("--all", status=3)
        self.assertEqual(self.saved(), ["good.txt"])
        self.assertIn("bad.txt: the archive is damaged", done.stderr)

    def test_a_full_disk_leaves_no_part_of_a_file(self):
        deliver(self.mail, 1, [("small.txt", b"s" * 100), ("large.txt", b"l" * 3000000)])
        self.index()
        os.mkdir(self.into)
        done = ctl.subprocess.run(
            [ctl.TREVIXCTL, "extract", "--maildir", self.mail, "--all", "--into", self.into],
            env=self.environment(), text=True, stdout=ctl.subprocess.PIPE,
            stderr=ctl.subprocess.PIPE, check=False,
            preexec_fn=lambda: (signal.signal(signal.SIGXFSZ, signal.SIG_IGN),
                                resource.setrlimit(resource.RLIMIT_FSIZE, (1000000, 1000000))))
        self.assertIn(done.returncode, (1, 3), done.stderr)
        self.assertIn("large.txt", done.stderr)
        self.assertEqual(self.saved(), ["small.txt"])

    def test_a_directory_that_cannot_be_used_is_said_so(self):
        deliver(self.mail, 1, [("a.txt", b"a")])
        self.index()
        for into in ("/nonexistent/below/it", self.config_file("x") + "/y",
                     os.path.join(self.mail, "trevix-associated.db")):
            done = self.ctl("extract", "--maildir", self.mail, "--all", "--into", into, status=1)
            self.assertIn("--into DIR", done.stderr)

    def test_json_names_the_files(self):
        deliver(self.mail, 1, [("a.txt", b"a")])
        self.index()
        events = self.events(self.extract("--row", "1", "--json"))
        self.assertEqual(events[0], {"event": "file", "row": 1,
                                     "path": os.path.join(self.into, "a.txt")})
        self.assertEqual((events[-1]["saved"], events[-1]["failed"]), (1, 0))

    def test_nothing_chosen_and_nothing_found_are_told_apart(self):
        deliver(self.mail, 1, [("a.txt", b"a")])
        self.index()
        self.assertIn("nothing was chosen", self.extract(status=2).stderr)
        self.assertIn("--all takes no choice", self.extract("--all", "a", status=2).stderr)
        for arguments in (["--row", "0"], ["--row", "x"], ["--larger", "x", "a"], ["--frob"]):
            self.extract(*arguments, status=2)
        self.assertIn("no attachment matches", self.extract("--row", "7", status=1).stderr)
        self.assertFalse(os.path.exists(self.into))


if __name__ == "__main__":
    ctl.main()
