#!/usr/bin/env python3
"""What trevixctl compress makes of broken mail, hostile names and damaged records of its own.

The mail is judged by an independent reader: whatever else happens, no byte is lost or altered that
was not an attachment's, and no attachment that does not come out of its archive as it was.
"""

import base64
import io
import os
import sqlite3
import sys
import zipfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import ctl
import mail_reader

TEXT = b"".join(b"line %d of the attachment\r\n" % number for number in range(400))
PARSER = mail_reader.Parser()  # knows a message that it has read before
LIMIT_PARTS, LIMIT_DEPTH, LIMIT_HEADERS = 10_000, 100, 50 * 1024 * 1024


def encoded(content=TEXT):
    return base64.encodebytes(content)


def part(name, body=None, fields=b""):
    return (b"--b\nContent-Type: application/octet-stream\n" + fields
            + b"Content-Disposition: attachment; filename=\"" + name + b"\"\n"
            + (b"Content-Transfer-Encoding: base64\n\n" + encoded() if body is None
               else b"\n" + body) + b"\n")


def message(*parts, subject=b"odd", fields=b"", kind=b"multipart/mixed; boundary=b", close=True):
    return (b"From: ann@example.org\nTo: ben@example.org\nSubject: " + subject
            + b"\nDate: Mon, 01 Oct 2007 10:00:00 +0000\n" + fields
            + b"MIME-Version: 1.0\nContent-Type: " + kind + b"\n\n"
            + b"--b\nContent-Type: text/plain\n\nhello\n" + b"".join(parts)
            + (b"--b--\n" if close else b""))


def nested(depth):
    """One attachment below so many multiparts."""
    raw = b"Subject: nested\n"
    for level in range(depth):
        raw += b"Content-Type: multipart/mixed; boundary=n%d\n\n--n%d\n" % (level, level)
    raw += (b"Content-Type: application/x\nContent-Disposition: attachment; filename=deep.txt\n"
            b"Content-Transfer-Encoding: base64\n\n" + encoded())
    return raw + b"".join(b"\n--n%d--\n" % level for level in reversed(range(depth)))


def with_parts(count):
    """A message of so many parts, itself and its text included, the last an attachment."""
    return message(*[b"--b\nContent-Type: text/plain\n\n\n"] * (count - 3), part(b"a.txt"))


def with_header_of(size):
    line = b"X-Line: " + b"x" * 990 + b"\n"
    return message(part(b"a.txt"), fields=line * (size // len(line) + 1))


# Name: (bytes, the names of the attachments afterwards, what the report says or None).
BROKEN = {
    "good": (message(part(b"good.txt")), ["good.zip"], None),
    "no-boundary": (message(part(b"a.txt"), kind=b"multipart/mixed"), None, None),
    "unclosed": (message(part(b"a.txt"), close=False), ["a.zip"], None),
    "nested-100": (nested(LIMIT_DEPTH), ["deep.zip"], None),
    "nested-101": (nested(LIMIT_DEPTH + 1), None, "more than 100 levels and is skipped"),
    "parts-10000": (with_parts(LIMIT_PARTS), ["a.zip"], None),
    "parts-10001": (with_parts(LIMIT_PARTS + 1), None, "more than 10000 parts and is skipped"),
    "header-only": (b"Subject: x\nContent-Type: multipart/mixed; boundary=b\n", None, None),
    "empty-file": (b"", None, None),
    "nul-bytes": (message(part(b"n.txt", b"\0\0a\0" * 40), part(b"a.txt")), ["n.zip", "a.zip"],
                  None),
    "nul-in-header": (message(part(b"a.txt"), subject=b"a\0b"), ["a.zip"], None),
    # The reader sees the spelling for programs that know plain names alone.
    "8-bit-headers": (message(part(b"\xe4\xf6.txt"), subject=b"\xe4\xf6\xfc"), ["__.zip"], None),
    "8-bit-field-name": (message(part(b"a.txt"), fields=b"X-\xc3: y\n"), None,
                         "a header line that is no header field"),
    "bare-cr": (message(part(b"r.txt", b"a\rb\rc\r" * 20)), ["r.zip"], None),
    "bare-cr-in-header": (message(part(b"a.txt"), subject=b"a\rb"), None,
                          "a bare carriage return in a header"),
    "unknown-charset": (message(part(b"a.txt", fields=b"X-A: =?x-none?Q?a?=\n"),
                                subject=b"=?x-none?B?4A==?="), ["a.zip"], None),
    "base64-with-junk": (message(part(b"j.txt", b"", b"Content-Transfer-Encoding: base64\n")
                                 .rstrip(b"\n") + b"\n\n" + encoded()[:76] + b"\xff!<>"
                                 + encoded()[76:] + b"\n", part(b"a.txt")), ["j.txt", "a.zip"],
                         "unable to read j.txt: the attachment cannot be decoded"),
    "log-with-junk": (message(part(b"trevix.log", b"QUJD!!", b"Content-Transfer-Encoding: base64\n"),
                              part(b"a.txt")), ["trevix.log", "a.zip"],
                      "unable to read trevix.log: the attachment cannot be decoded"),
}

NAMES = (b"../../etc/passwd.txt", b"/etc/shadow.txt", b"a/b.txt", b"C:\\\\temp\\\\c.txt",
         b"q\\\"uote.txt", b"", b"n" * 300 + b".txt", b"\xff\xfe.txt", b"twice.txt", b"twice.txt",
         b"TWICE.TXT", b"trevix.log", b"TREVIX.LOG", b"Trevix.Log", b"..", b".", b" ", b"a\tb.txt",
         b"-rf.txt", b"%s%n.txt", b"CON.txt", b"stage.zip.txt")


class OddCase(ctl.Case):
    def setUp(self):
        super().setUp()
        ctl.make_folder(self.mail)

    def deliver(self, number, name, raw):
        path = os.path.join(self.mail, "cur", f"{1190000000 + number}.{name}.host:2,S")
        with open(path, "wb") as file:
            file.write(raw)
        os.utime(path, (1190000000 + number, 1190000000 + number))

    def read_mail(self):
        return mail_reader.snapshot(self.mail, PARSER)

    def left_outside(self):
        """Files in the scratch directory beside the store, the settings, the caches and the log."""
        found = []
        for directory, _, names in os.walk(self.scratch):
            if not directory.startswith((self.mail, os.path.join(self.scratch, "home"))):
                found += [name for name in names if name != "trevix.log"]
        return found


class BrokenMail(OddCase):
    def setUp(self):
        super().setUp()
        for number, (name, (raw, _, _)) in enumerate(BROKEN.items()):
            self.deliver(number, name, raw)
        self.before = self.read_mail()

    def check(self, mode):
        done = self.compress("--no-index", "--" + mode)
        after = self.read_mail()
        self.assertEqual(mail_reader.compare(self.before, after, mode), [])
        old = {m["sha"] for m in self.before["messages"]}
        untouched = {m["path"].split(".")[1] for m in after["messages"] if m["sha"] in old}
        for name, (_, names, says) in BROKEN.items():
            with self.subTest(message=name):
                self.assertEqual(name in untouched, names is None)
                self.assertIn(says or "", done.stderr)
        self.assertNotIn("MAPI_E", done.stderr)
        self.assertIn(f"{len(untouched)} of", f"{sum(e[1] is None for e in BROKEN.values())} of")
        self.assertEqual(self.left_outside(), [])
        return done, after

    def names_of(self, after):
        """The attachment names of the messages that were changed, smallest message first."""
        old = {m["sha"] for m in self.before["messages"]}
        return sorted([leaf["name"] for leaf in m["leaves"] if leaf["name"]]
                      for m in after["messages"] if m["sha"] not in old)

    def test_is_zipped_exactly_or_left_alone_with_a_reason(self):
        done, after = self.check("separate")
        self.assertEqual(self.names_of(after),
                         sorted(names for _, names, _ in BROKEN.values() if names))
        # The reason names the file, since a message like that has no subject to know it by.
        self.assertIn("1190000004.nested-101.host: the message has more than", done.stderr)

    def test_gives_rollups_or_is_left_alone_with_a_reason(self):
        self.check("rollup")

    def test_is_not_visited_again(self):
        self.compress("--no-index", "--separate")
        before = self.read_mail()
        done = self.compress("--no-index", "--separate")
        self.assertIn("0 messages changed", done.stdout)
        self.assertEqual(mail_reader.compare(before, self.read_mail(), "unchanged"), [])

    def test_damaged_attachments_are_not_called_small(self):
        done = self.compress("--no-index", "--separate", "--min-size", "100")
        self.assertIn("unable to read j.txt: the attachment cannot be decoded", done.stderr)
        self.assertNotIn("j.txt; size of", done.stderr)


class Monsters(OddCase):
    def test_are_skipped_with_a_reason(self):
        self.deliver(1, "parts", with_parts(100_000))
        self.deliver(2, "headers", with_header_of(LIMIT_HEADERS))
        before = ctl.snapshot(os.path.join(self.mail, "cur"))
        done = self.compress("--no-index")
        for name, limit in (("parts", "10000 parts"), ("headers", "50 MiB of headers")):
            self.assertRegex(done.stderr, rf"{name}.host: the message has more than {limit} and "
                                          "is skipped")
        self.assertEqual(ctl.snapshot(os.path.join(self.mail, "cur")), before)


class HostileNames(OddCase):
    def check(self, mode):
        before = self.read_mail()
        self.compress("--no-index", "--" + mode)
        after = self.read_mail()
        self.assertEqual(mail_reader.compare(before, after, mode), [])
        self.assertEqual(self.left_outside(), [])
        return after

    def members(self, after):
        """(names of the archives, number of members in all of them)."""
        archives, members = [], 0
        for mail in after["messages"]:
            for number, leaf in enumerate(mail["leaves"]):
                if leaf["zip"] is None:
                    continue
                archives.append(leaf["name"])
                data = mail_reader.read_leaf(self.mail, mail, number)
                with zipfile.ZipFile(io.BytesIO(data)) as archive:
                    self.assertIsNone(archive.testzip())
                    names = archive.namelist()
                    self.assertEqual(len(names), len({name.lower() for name in names}))
                    for name in names:
                        self.assertNotIn("/", name)
                        self.assertNotIn("\\", name)
                        self.assertNotIn(name, ("", ".", ".."))
                        self.assertLessEqual(len(name.encode()), 255)
                    members += len(names)
        return archives, members

    def test_each_in_a_message_of_its_own(self):
        for number, name in enumerate(NAMES):
            self.deliver(number, f"m{number}", message(part(name)))
        archives, members = self.members(self.check("separate"))
        self.assertEqual((len(archives), members), (len(NAMES), len(NAMES)))

    def test_all_in_one_message(self):
        for mode in ("separate", "rollup"):
            with self.subTest(mode=mode):
                self.deliver(len(mode), mode, message(*[
                    part(name, b"content of attachment %d\n" % number * 20)
                    for number, name in enumerate(NAMES)]))
                archives, members = self.members(self.check(mode))
                for name in os.listdir(os.path.join(self.mail, "cur")):
                    os.unlink(os.path.join(self.mail, "cur", name))
                self.assertEqual(len(archives), 1 if mode == "rollup" else len(NAMES))
                self.assertEqual(members, len(NAMES))

    def test_thousands_of_one_name_in_one_archive(self):
        count = 2000
        self.deliver(1, "many", message(*[part(b"image.txt", b"picture %d\n" % number)
                                          for number in range(count)]))
        archives, members = self.members(self.check("rollup"))
        self.assertEqual((len(archives), members), (1, count))


class DamagedRecords(OddCase):
    """The folder records are for speed only: damaged ones are made anew, and no mail suffers."""

    def setUp(self):
        super().setUp()
        self.deliver(1, "one", message(part(b"a.txt")))
        self.compress("--no-index")
        self.deliver(2, "two", message(part(b"b.txt")))

    def database(self, statement, *values):
        with sqlite3.connect(os.path.join(self.mail, "trevix-associated.db")) as database:
            rows = database.execute(statement, values)
            found = rows.fetchall()
            count = rows.rowcount
        database.close()
        return found if found else count

    def saved(self):
        return self.database("SELECT content FROM attachment WHERE name = 'txfolders.zip'")[0][0]

    def damaged_zips(self):
        good = self.saved()
        with zipfile.ZipFile(io.BytesIO(good)) as archive:
            adtg = archive.read("txfolders.adtg")
        yield b""
        yield b"no archive"
        yield good[:len(good) // 2]
        for content in (b"", b"no record set", adtg[:len(adtg) // 2], adtg[:-1],
                        adtg.replace(b"F\0o\0l\0d\0e\0r\0", b"\xff" * 12)):
            target = io.BytesIO()
            with zipfile.ZipFile(target, "w") as archive:
                archive.writestr("txfolders.adtg", content)
            yield target.getvalue()

    def test_are_made_anew(self):
        for number, content in enumerate(self.damaged_zips()):
            with self.subTest(number=number):
                self.assertEqual(self.database(
                    "UPDATE attachment SET content = ? WHERE name = 'txfolders.zip'", content), 1)
                self.deliver(10 + number, f"new{number}",
                             message(part(b"c.txt", b"content %d\n" % number * 50)))
                before = self.read_mail()
                done = self.compress("--no-index")
                self.assertIn("attachment", done.stdout)
                after = self.read_mail()
                self.assertEqual(mail_reader.compare(before, after, "rollup", complete=True), [])
                self.assertEqual(self.database(
                    "SELECT count(*) FROM attachment WHERE name = 'txfolders.zip'"), [(1,)])
                with zipfile.ZipFile(io.BytesIO(self.saved())) as archive:
                    self.assertEqual(archive.namelist(), ["txfolders.adtg"])
                self.assertIn("0 messages changed", self.compress("--no-index").stdout)


if __name__ == "__main__":
    ctl.main()
