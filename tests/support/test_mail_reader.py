"""Tests of the mail reader: it must see each kind of damage, and no damage where there is none."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import mail_reader
import mime_scanner
import splice

REPORT = b"quarter;figure\n" + b"1;100\n2;200\n" * 40
NOTES = b"Notes of the meeting, second version.\n" * 30


def plain_message(subject, line_end=b"\n"):
    """Text, a report and notes in one multipart/mixed."""
    boundary = b"=_plain"
    lines = [b"From: a@example.org", b"To: b@example.org", b"Subject: " + subject,
             b"Message-ID: <" + subject.replace(b" ", b".") + b"@example.org>",
             b"MIME-Version: 1.0",
             b'Content-Type: multipart/mixed; boundary="' + boundary + b'"', b"",
             b"This is a message in several parts.",
             b"--" + boundary, b"Content-Type: text/plain", b"", b"Here they are.", b"",
             b"--" + boundary, b'Content-Type: text/csv; name="report.csv"',
             b'Content-Disposition: attachment; filename="report.csv"', b"Content-ID: <one@x>",
             b"", REPORT.rstrip(b"\n").replace(b"\n", line_end),
             b"--" + boundary, b"Content-Type: text/plain",
             b'Content-Disposition: attachment; filename="notes.txt"', b"",
             NOTES.rstrip(b"\n").replace(b"\n", line_end),
             b"--" + boundary + b"--", b"That was all.", b""]
    return line_end.join(lines)


def signed_message():
    return (b"From: a@example.org\nSubject: signed\nMessage-ID: <s@example.org>\n"
            b'Content-Type: multipart/signed; boundary="s"; protocol="application/pgp-signature"\n'
            b"\n--s\nContent-Type: text/plain\n"
            b'Content-Disposition: attachment; filename="x.txt"\n\n' + NOTES +
            b"\n--s\nContent-Type: application/pgp-signature\n\nsignature\n--s--\n")


class Store:
    """A small Maildir++ on disk."""

    def __init__(self, root):
        self.root = root
        for folder in ("", ".Archive.2019"):
            for part in ("new", "cur", "tmp"):
                os.makedirs(os.path.join(root, folder, part))

    def put(self, raw, path, mtime_ns=1_500_000_000_123_456_789):
        full = os.path.join(self.root, path)
        with open(full, "wb") as file:
            file.write(raw)
        os.utime(full, ns=(mtime_ns, mtime_ns))
        return full

    def read(self, path):
        with open(os.path.join(self.root, path), "rb") as file:
            return file.read()

    def remove(self, path):
        os.unlink(os.path.join(self.root, path))

    def snapshot(self):
        return mail_reader.snapshot(self.root)


class ReaderTest(unittest.TestCase):
    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="reader-")
        self.addCleanup(shutil.rmtree, self.root)
        self.store = Store(self.root)
        self.store.put(plain_message(b"first mail"), "cur/100.a.host:2,S")
        self.store.put(plain_message(b"second mail", b"\r\n"), "new/101.b.host")
        self.store.put(signed_message(), ".Archive.2019/cur/102.c.host:2,FS")
        self.before = self.store.snapshot()

    def findings(self, mode="any", **options):
        return mail_reader.compare(self.before, self.store.snapshot(), mode, **options)

    def assert_found(self, rule, text="", mode="any", **options):
        findings = self.findings(mode, **options)
        self.assertTrue(any(f.startswith(rule + " ") and text in f for f in findings), findings)

    def swap(self, old_path, raw, new_path):
        self.store.remove(old_path)
        self.store.put(raw, new_path)

    def zip_first(self, raw=None, content=REPORT.rstrip(b"\n"), member="report.csv", extra=None):
        """The first message with its report in an archive."""
        raw = raw or self.store.read("cur/100.a.host:2,S")
        extra = b"Content-ID: <one@x>\n" if extra is None else extra
        part = splice.archive_part("report.zip", splice.make_zip([(member, content)]), extra=extra)
        return splice.replace_leaf(raw, 1, part)


class SnapshotTest(ReaderTest):
    def test_describes_place_flags_and_attributes(self):
        signed = [m for m in self.before["messages"] if m["folder"] == ".Archive.2019"]

        self.assertEqual(len(signed), 1)
        self.assertEqual(signed[0]["flags"], "FS")
        self.assertEqual(signed[0]["part"], "cur")
        self.assertEqual(signed[0]["mtime_ns"], 1_500_000_000_123_456_789)
        self.assertTrue(signed[0]["protected"])

    def test_decodes_the_parts(self):
        first = next(m for m in self.before["messages"] if m["unique"] == "100.a.host")

        self.assertEqual([leaf["name"] for leaf in first["leaves"]],
                         [None, "report.csv", "notes.txt"])
        self.assertEqual(first["leaves"][1]["sha"], mail_reader.digest(REPORT.rstrip(b"\n")))

    def test_lists_other_files(self):
        self.store.put(b"x", "control-file")

        self.assertIn("control-file", self.store.snapshot()["others"])

    def test_finds_nested_trees_of_maildirs(self):
        for part in ("new", "cur", "tmp"):
            os.makedirs(os.path.join(self.root, "Lists", "deep", part))

        self.assertEqual(self.store.snapshot()["folders"], ["", ".Archive.2019", "Lists/deep"])


class CompareTest(ReaderTest):
    def test_accepts_an_untouched_store(self):
        self.assertEqual(self.findings(), [])
        self.assertEqual(self.findings("unchanged"), [])

    def test_accepts_an_attachment_in_its_own_archive(self):
        self.swap("cur/100.a.host:2,S", self.zip_first(), "cur/200.a.host:2,S")

        self.assertEqual(self.findings("separate"), [])

    def test_accepts_a_rollup(self):
        raw = self.store.read("cur/100.a.host:2,S")
        data = splice.make_zip([("report.csv", REPORT.rstrip(b"\n")),
                                ("notes.txt", NOTES.rstrip(b"\n"))])
        part = splice.archive_part("report.zip", data, extra=b"Content-ID: <one@x>\n")
        raw = splice.replace_leaf(splice.remove_leaf(raw, 2), 1, part)
        self.swap("cur/100.a.host:2,S", raw, "cur/200.a.host:2,S")

        self.assertEqual(self.findings("rollup"), [])
        self.assert_found("Z", "removed in separate mode", "separate")

    def test_accepts_a_rollup_of_parts_with_another_one_between_and_behind(self):
        raw = self.store.read("cur/100.a.host:2,S").replace(
            b"--=_plain--", b"--=_plain\nContent-Type: text/plain\n\nmiddle\n--=_plain\n"
            b'Content-Type: text/plain; name="b.txt"\n\n' + NOTES + b"--=_plain\n"
            b"Content-Type: text/plain\n\nend\n--=_plain--")
        self.swap("cur/100.a.host:2,S", raw, "cur/100.a.host:2,S")
        self.before = self.store.snapshot()
        data = splice.make_zip([("report.csv", REPORT.rstrip(b"\n")),
                                ("notes.txt", NOTES.rstrip(b"\n")),
                                ("b.txt", NOTES.rstrip(b"\n"))])
        part = splice.archive_part("report.zip", data, extra=b"Content-ID: <one@x>\n")
        for number in (4, 2):
            raw = splice.remove_leaf(raw, number)
        self.swap("cur/100.a.host:2,S", splice.replace_leaf(raw, 1, part), "cur/200.a.host:2,S")

        self.assertEqual(self.findings("rollup"), [])

    def test_sees_one_changed_byte_of_the_body(self):
        raw = self.store.read("cur/100.a.host:2,S").replace(b"Here they", b"Here thez")
        self.swap("cur/100.a.host:2,S", raw, "cur/200.a.host:2,S")

        self.assert_found("I2")
        self.assert_found("I1", "missing")

    def test_sees_one_changed_byte_of_a_header_preamble_delimiter_or_epilogue(self):
        original = self.store.read("cur/100.a.host:2,S")
        for old, new in ((b"To: b@", b"To: c@"), (b"This is a", b"This is A"),
                         (b"_plain\nContent-Type: text/p", b"_plain \nContent-Type: text/p"),
                         (b"was all", b"was aLl")):
            with self.subTest(old=old):
                raw = self.zip_first(original).replace(old, new, 1)
                self.swap("cur/100.a.host:2,S", raw, "cur/200.a.host:2,S")

                findings = [f for f in self.findings() if f.startswith(("I2 ", "I3 "))]

                self.swap("cur/200.a.host:2,S", original, "cur/100.a.host:2,S")
                self.assertNotEqual(findings, [])

    def test_sees_a_lost_message(self):
        self.store.remove("new/101.b.host")

        self.assert_found("I3", "missing")
        self.assert_found("I9", "gone", "unchanged")

    def test_sees_a_doubled_message(self):
        self.store.put(self.store.read("new/101.b.host"), "new/201.b.host")

        self.assert_found("I3", "twice")

    def test_sees_an_old_message_left_beside_the_new_one(self):
        self.store.put(self.zip_first(), "cur/200.a.host:2,S")

        self.assert_found("I3", "twice")

    def test_sees_a_message_moved_to_another_folder(self):
        os.rename(os.path.join(self.root, "new/101.b.host"),
                  os.path.join(self.root, ".Archive.2019/new/101.b.host"))

        self.assert_found("I3", "missing")
        self.assert_found("I3", "moved")

    def test_sees_a_changed_flag_time_mode_and_position(self):
        self.store.remove("cur/100.a.host:2,S")
        full = self.store.put(self.zip_first(plain_message(b"first mail")), "new/200.a.host",
                              mtime_ns=1_500_000_000_000_000_000)
        os.chmod(full, 0o600)

        for key in ("flags", "mtime_ns", "mode", "part"):
            self.assert_found("I4", key)

    def test_sees_a_wrong_archive_member(self):
        self.swap("cur/100.a.host:2,S", self.zip_first(content=b"something else"),
                  "cur/200.a.host:2,S")

        self.assert_found("I1", "content of report.csv is in no new archive")
        self.assert_found("I1", "was no attachment here")

    def test_sees_an_archive_that_lacks_the_last_byte(self):
        self.swap("cur/100.a.host:2,S", self.zip_first(content=REPORT.rstrip(b"\n")[:-1]),
                  "cur/200.a.host:2,S")

        self.assert_found("I1", "in no new archive")

    def test_sees_a_member_under_a_wrong_name(self):
        self.swap("cur/100.a.host:2,S", self.zip_first(member="notes.txt"), "cur/200.a.host:2,S")

        self.assert_found("Z", "archived as notes.txt")

    def test_sees_a_damaged_archive(self):
        data = bytearray(splice.make_zip([("report.csv", REPORT.rstrip(b"\n"))]))
        data[45] ^= 0x40
        part = splice.archive_part("report.zip", bytes(data), extra=b"Content-ID: <one@x>\n")
        raw = splice.replace_leaf(self.store.read("cur/100.a.host:2,S"), 1, part)
        self.swap("cur/100.a.host:2,S", raw, "cur/200.a.host:2,S")

        self.assert_found("Z", "unsound")

    def test_sees_an_attachment_dropped_from_a_rollup(self):
        raw = splice.remove_leaf(self.zip_first(), 2)
        self.swap("cur/100.a.host:2,S", raw, "cur/200.a.host:2,S")

        self.assert_found("I1", "content of notes.txt")

    def test_sees_a_lost_field_of_the_part(self):
        self.swap("cur/100.a.host:2,S", self.zip_first(extra=b""), "cur/200.a.host:2,S")

        self.assert_found("I2", "other header fields")

    def test_sees_foreign_line_ends(self):
        raw = self.zip_first(self.store.read("new/101.b.host"),
                             content=REPORT.rstrip(b"\n").replace(b"\n", b"\r\n"))
        self.swap("new/101.b.host", raw, "new/201.b.host")

        self.assert_found("I2", "line ends")

    def test_sees_a_touched_signed_message(self):
        part = splice.archive_part("x.zip", splice.make_zip([("x.txt", NOTES)]))
        raw = splice.replace_leaf(signed_message(), 0, part)
        self.swap(".Archive.2019/cur/102.c.host:2,FS", raw, ".Archive.2019/cur/202.c.host:2,FS")

        self.assert_found("I6")

    def test_sees_a_touched_signed_part_below_a_list_footer(self):
        inner = signed_message().split(b"\n", 3)[3]
        outer = (b"Subject: list\nMIME-Version: 1.0\nContent-Type: multipart/mixed; boundary=o\n\n"
                 b"--o\n" + inner + b"\n--o\nContent-Type: text/plain\n\nfooter\n--o--\n")
        self.store.put(outer, "cur/300.a.host:2,")
        self.before = self.store.snapshot()
        part = splice.archive_part("x.zip", splice.make_zip([("x.txt", NOTES)]))
        self.swap("cur/300.a.host:2,", splice.replace_leaf(outer, 0, part), "cur/301.a.host:2,")

        self.assert_found("I6", "protected part")

    def test_sees_wrong_size_fields_in_the_name(self):
        raw = self.store.read("cur/100.a.host:2,S")
        self.swap("cur/100.a.host:2,S", raw, f"cur/100.a.host,S={len(raw)}:2,S")
        self.before = self.store.snapshot()
        self.swap(f"cur/100.a.host,S={len(raw)}:2,S", self.zip_first(raw),
                  f"cur/200.a.host,S={len(raw)}:2,S")

        self.assert_found("I4", "size_field")

    def test_sees_a_file_that_was_written_again(self):
        path = os.path.join(self.root, "cur/100.a.host:2,S")
        raw = self.store.read("cur/100.a.host:2,S")
        self.store.put(raw, "tmp/copy")
        os.rename(os.path.join(self.root, "tmp/copy"), path)

        self.assert_found("I9", "inode", "unchanged")

    def test_sees_new_bytes_under_the_old_name(self):
        self.store.put(self.zip_first(), "cur/100.a.host:2,S")

        self.assert_found("I4", "old unique name")

    def test_sees_a_temporary_file_left_behind(self):
        self.store.put(b"half a message", ".Archive.2019/tmp/900.x.host")

        self.assert_found("I3", "temporary file")
        self.assertEqual(self.findings(allow_tmp=True), [])

    def test_sees_what_should_have_been_zipped(self):
        self.swap("cur/100.a.host:2,S", self.zip_first(), "cur/200.a.host:2,S")

        self.assert_found("Z", "notes.txt qualifies but was not zipped", complete=True)

    def test_sees_an_attachment_below_the_threshold(self):
        self.swap("cur/100.a.host:2,S", self.zip_first(), "cur/200.a.host:2,S")

        self.assert_found("Z", "below the threshold", min_size=100000)

    def test_accepts_two_equal_messages_in_one_folder(self):
        self.store.put(plain_message(b"first mail"), "cur/110.a.host:2,S")
        self.before = self.store.snapshot()
        self.swap("cur/110.a.host:2,S", self.zip_first(), "cur/210.a.host:2,S")

        self.assertEqual(self.findings("separate"), [])


class ScannerTest(unittest.TestCase):
    def check_cover(self, raw):
        at = 0
        for _, start, end, _ in mime_scanner.Scan(raw).pieces:
            self.assertEqual(start, at)
            at = end
        self.assertEqual(at, len(raw))

    def test_covers_every_byte_of_odd_messages(self):
        head = b"Content-Type: multipart/mixed; boundary=b\n\n"
        for raw in (b"", b"\n", b"no header end", head, head + b"--b", head + b"--b\n--b\n--b--",
                    head + b"--b\n\n--b--\n", head + b"--b--\nrest", b"\r\n" + head,
                    head + b"--b\n" + head.replace(b"=b", b"=bb") + b"--bb\n\nx\n--b--\n"):
            with self.subTest(raw=raw):
                self.check_cover(raw)

    def test_tells_a_longer_boundary_from_its_beginning(self):
        raw = (b"Content-Type: multipart/mixed; boundary=b\n\n--b\n\n"
               b"text\n--bb\nstill text\n--b--\n")

        self.assertEqual(len(mime_scanner.Scan(raw).leaves), 1)


class CommandLineTest(ReaderTest):
    def test_writes_snapshots_and_compares_them(self):
        program = os.path.join(os.path.dirname(os.path.abspath(__file__)), "mail_reader.py")
        with tempfile.TemporaryDirectory() as folder:
            for name in ("a.json", "b.json"):
                with open(os.path.join(folder, name), "wb") as out:
                    subprocess.run([sys.executable, program, "snapshot", self.root], stdout=out,
                                   check=True)
                self.store.put(b"Subject: more\n\n", "cur/400.more:2,")
            done = subprocess.run([sys.executable, program, "compare", "a.json", "b.json"],
                                  cwd=folder, capture_output=True, text=True, check=False)

        self.assertEqual(done.returncode, 1)
        self.assertIn("I3 cur/400.more:2,: message is foreign", done.stdout)


if __name__ == "__main__":
    unittest.main()
