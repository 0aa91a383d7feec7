#!/usr/bin/env python3
"""What trevixctl index makes of attachments that are not as they should be."""

import io
import zipfile

import ctl
from index_case import LINK, IndexCase, deliver, zip_of


def link_to(path):
    """A message whose attachment is a file that is kept elsewhere."""
    return LINK.replace(b"/srv/share/plan.pdf", path.replace("\\", "\\\\").encode())


class OddAttachments(IndexCase):
    """What is in a message that has no ordinary attachments: the run goes on, and says why."""

    def setUp(self):
        super().setUp()
        ctl.make_folder(self.mail)
        self.ctl("config", "set", "log-level", "12")

    def log_lines(self, text):
        return [line for line in self.ctl("log").stdout.splitlines() if text in line]

    def test_links_of_both_kinds_have_their_numbers(self):
        deliver(self.mail, 1, raw=link_to("/srv/share/own.pdf"))
        deliver(self.mail, 2, raw=link_to("//server/share/common.pdf"))
        deliver(self.mail, 3, raw=link_to("\\\\server\\share\\old.pdf"))
        self.index()
        rows = {row["FileName"]: (row["ZipIndex"], row["FileSize"], row["ZipFile"])
                for row in self.rows()}
        self.assertEqual(rows, {"own.pdf": (-2, 0, ""), "common.pdf": (-3, 0, ""),
                                "old.pdf": (-3, 0, "")})

    def test_what_is_called_zip_and_is_none_has_no_row_and_a_line_of_the_log(self):
        good = zip_of(("inside.txt", "i" * 100))
        deliver(self.mail, 1, [("empty.zip", b""), ("text.ZIP", b"no archive at all"),
                               ("cut.zip", good[:-10]), ("good.zip", good), ("plain.txt", b"p")],
                Subject="All sorts")
        self.index()
        self.assertEqual(self.names(), ["inside.txt", "plain.txt"])
        for name in ("empty.zip", "text.ZIP", "cut.zip"):
            lines = self.log_lines(f"'{name}' on 'All sorts': not listed: ")
            self.assertEqual(len(lines), 1, name)
        self.assertEqual(self.log_lines("'good.zip'"), [])
        # They are looked into once, not by every run.
        summary = self.events(self.index("--json"))[-1]
        self.assertEqual((summary["messages_failed"], summary["rows"]), (0, 2))

    def test_below_the_trace_level_nothing_is_said_of_them(self):
        self.ctl("config", "set", "log-level", "8")
        deliver(self.mail, 1, [("text.zip", b"no archive at all")])
        self.index()
        self.assertEqual(self.log_lines("not listed"), [])

    def test_names_in_old_and_new_encodings_become_text(self):
        archive = io.BytesIO()
        with zipfile.ZipFile(archive, "w") as target:
            target.writestr("gr\u00fc\u00dfe.txt", "utf-8")
            target.writestr("plain1.txt", "cp437")
        old = archive.getvalue().replace(b"plain1.txt", b"stra\xe1e.txt")
        deliver(self.mail, 1, [("names.zip", old)])
        self.index()
        self.assertEqual(self.names(), sorted(["gr\u00fc\u00dfe.txt", "stra\u00dfe.txt"]))

    def test_a_description_that_is_too_long_is_left_out_and_told(self):
        many = ", ".join(f"recipient{number}@example.org" for number in range(20))
        deliver(self.mail, 1, [("a.txt", b"a"), ("z.zip", zip_of(("in.txt", "i"),))],
                Subject="To many", To=many)
        deliver(self.mail, 2, [("b.txt", b"b")])
        self.index()
        rows = {row["FileName"]: row["To"] for row in self.rows()}
        self.assertEqual(rows, {"a.txt": "", "in.txt": "", "b.txt": "ben@example.org"})
        self.assertEqual(len(self.log_lines("'a.txt' on 'To many': To left out: ")), 1)
        self.assertEqual(len(self.log_lines("'in.txt' on 'To many': To left out: ")), 1)

    def test_a_name_that_is_too_long_for_its_column_costs_its_row_alone(self):
        deliver(self.mail, 1, [("z.zip", zip_of(("n" * 256 + ".txt", "long"), ("short.txt", "s")))],
                Subject="Long name")
        self.index()
        self.assertEqual(self.names(), ["short.txt"])
        lines = self.log_lines("' on 'Long name': FileName not written, no row: ")
        self.assertEqual(len(lines), 1)

    def test_dates_that_are_none_stay_empty(self):
        archive = bytearray(zip_of(("a.txt", "a")))
        central = archive.index(b"PK\x01\x02")
        archive[central + 14:central + 16] = b"\xff\xff"  # month 15, day 31
        raw = (b"From: ann@example.org\r\nSubject: dates\r\nDate: the day after\r\n"
               b"MIME-Version: 1.0\r\nContent-Type: application/octet-stream\r\n"
               b"Content-Disposition: attachment; filename=d.bin; "
               b"modification-date=\"some time ago\"\r\n\r\nd")
        deliver(self.mail, 1, [("z.zip", bytes(archive))])
        deliver(self.mail, 2, raw=raw)
        self.index()
        rows = {row["FileName"]: row for row in self.rows()}
        self.assertIsNone(rows["a.txt"]["FileDate"])
        # Without a time of its own an attachment has that of its message.
        self.assertEqual(rows["d.bin"]["FileDate"], rows["d.bin"]["Received"])


if __name__ == "__main__":
    ctl.main()
