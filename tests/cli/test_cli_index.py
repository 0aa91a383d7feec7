#!/usr/bin/env python3
"""What trevixctl index does, alone and behind a compression."""

import json
import os
import signal

import ctl
from index_case import IndexCase, deliver, zip_of


class Index(IndexCase):
    def setUp(self):
        super().setUp()
        self.make_store()

    def test_indexes_a_new_store_and_changes_no_mail(self):
        before = self.mail_places()
        done = self.index()

        self.assertRegex(done.stdout, r"^index of Mail: 8 attachments \(8 new\), 156 KB "
                                      r"\(156 KB packed\), index [0-9.]+ KB, [0-9.]+ s\n$")
        self.assertIn("Archive/2019: 1 message indexed, 2 attachments\n", done.stderr)
        self.assertEqual(self.mail_places(), before)
        self.assertEqual(self.names(), sorted(f"{name}{number}.{extension}" for number in range(4)
                                              for name, extension in (("a", "txt"), ("b", "doc"))))

    def test_update_without_change_keeps_every_row(self):
        self.index()
        before = self.rows()
        summary = self.events(self.index("--json"))[-1]
        self.assertEqual(summary["rows"], 8)
        self.assertEqual(self.rows(), before)

    def test_update_takes_up_what_came_and_drops_what_went(self):
        self.index()
        deliver(os.path.join(self.mail, ".Work"), 77, [("new.txt", b"new")])
        gone = os.path.join(self.mail, "cur")
        os.unlink(os.path.join(gone, os.listdir(gone)[0]))
        self.index()
        names = self.names()
        self.assertIn("new.txt", names)
        self.assertNotIn("a0.txt", names)
        self.assertEqual(len(names), 7)

    def test_update_is_the_same_as_a_new_index(self):
        self.index()
        self.compress("--no-index")
        deliver(self.mail, 78, [("papers.zip", zip_of(("docs/p.txt", "p"), ("q.txt", "q")))])
        self.index()
        updated = self.rows()
        self.index("--rebuild")
        key = lambda row: (row["EntryID"], row["ZipFile"], row["FileName"])
        drop = ("Row", "FolderKey")
        plain = lambda rows: [{name: value for name, value in row.items() if name not in drop}
                              for row in sorted(rows, key=key)]
        self.assertEqual(plain(self.rows()), plain(updated))
        self.assertEqual(len(updated), 10)

    def test_rebuild_reads_everything_anew(self):
        self.index()
        summary = self.events(self.index("--rebuild", "--json"))[-1]
        self.assertEqual((summary["rows"], summary["rows_added"]), (8, 8))
        self.assertEqual(summary["messages_indexed"], 4)

    def test_json_tells_folders_progress_and_a_summary(self):
        events = self.events(self.index("--json"))
        self.assertEqual([event["folder"] for event in events if event["event"] == "folder"],
                         ["Inbox", "Archive", "Archive/2019", "Work"])
        self.assertTrue(all(event["run"] == "index" for event in events[:-1]))
        self.assertEqual(events[-2]["event"], "complete")
        summary = events[-1]
        self.assertEqual(summary["stores"], ["Mail"])
        self.assertEqual((summary["rows"], summary["bytes"]), (8, 160000))
        self.assertTrue(summary["saved"])

    def test_quiet_says_nothing(self):
        done = self.index("--quiet")
        self.assertEqual((done.stdout, done.stderr), ("", ""))

    def test_an_empty_store_gets_an_empty_index(self):
        self.mail = os.path.join(self.scratch, "Empty")
        ctl.make_folder(self.mail)
        self.assertIn("index of Empty: 0 attachments (0 new)", self.index().stdout)
        done = self.find(status=1)
        self.assertIn("no attachment matches", done.stderr)

    def test_all_stores_of_a_profile_are_indexed(self):
        other = os.path.join(self.scratch, "Other")
        ctl.make_folder(other)
        deliver(other, 5, [("elsewhere.txt", b"e")])
        self.ctl("profile", "add", "both", "--maildir", self.mail, "--maildir", other)
        done = self.ctl("index", "--profile", "both")
        self.assertIn("index of Mail, Other: 9 attachments", done.stdout)
        found = self.ctl("find", "--profile", "both", "--json", "elsewhere")
        row = json.loads(found.stdout.splitlines()[0])
        self.assertNotEqual(row["StoreID"], "")
        done = self.ctl("extract", "--profile", "both", "elsewhere", "--into", self.into)
        self.assertEqual(self.read_bytes("elsewhere.txt"), b"e")

    def test_a_damaged_index_is_replaced_by_a_new_one(self):
        self.index()
        for content in (b"no archive", zip_of(("txattach.adtg", "no record set")), None):
            self.saved_index(content)
            self.assertIn("8 attachments (8 new)", self.index().stdout)
            self.assertEqual(len(self.names()), 8)

    def test_status_tells_when_it_was_made(self):
        self.index()
        done = self.ctl("status", "--maildir", self.mail)
        self.assertRegex(done.stdout, r"Last index: +\d+/\d+/\d+ ")


class Chain(IndexCase):
    def setUp(self):
        super().setUp()
        self.make_store()

    def test_a_message_that_was_rewritten_has_its_new_rows_and_none_of_its_old_ones(self):
        self.index()
        before = self.rows()
        self.assertEqual({row["ZipIndex"] for row in before}, {-1})
        # What is not compressed stands as it was.
        deliver(os.path.join(self.mail, ".Work"), 90, [("photo.jpg", b"j" * 5000)])
        self.index()
        kept = [row for row in self.rows("photo.jpg")]

        self.compress()

        after = self.rows()
        self.assertEqual(sorted(row["FileName"] for row in after),
                         sorted([row["FileName"] for row in before] + ["photo.jpg"]))
        old_ids = {row["EntryID"] for row in before}
        for row in after:
            if row["FileName"] == "photo.jpg":
                self.assertEqual(row["EntryID"], kept[0]["EntryID"])
                self.assertEqual(row["ZipIndex"], -1)
                continue
            self.assertNotIn(row["EntryID"], old_ids)
            self.assertGreaterEqual(row["ZipIndex"], 0)
            self.assertTrue(row["ZipFile"].endswith(".zip"))
            self.assertEqual(row["FileSize"], 20000)
            self.assertLess(row["FileIndex"], 20000)
        self.extract("a2.txt")
        self.assertEqual(self.read_bytes("a2.txt").decode(), ctl.text_of("a2", 20000))

    def test_compress_brings_the_index_up_to_date(self):
        done = self.compress()
        lines = done.stdout.splitlines()
        self.assertEqual(len(lines), 2)
        self.assertTrue(lines[0].startswith("4 messages changed, "))
        self.assertTrue(lines[1].startswith("index of Mail: 8 attachments (8 new), 156 KB ("))
        rows = self.rows("a2.txt")
        self.assertEqual([row["ZipFile"] for row in rows], ["a2.zip"])
        self.assertRegex(self.ctl("status", "--maildir", self.mail).stdout, r"Lock: +free")

    def test_summary_tells_of_the_index(self):
        summary = self.events(self.compress("--json"))[-1]
        self.assertEqual(summary["messages_changed"], 4)
        self.assertEqual((summary["index"]["rows"], summary["index"]["saved"]), (8, True))

    def test_no_index_leaves_it_as_it_is(self):
        done = self.compress("--no-index", "--json")
        self.assertNotIn("index", self.events(done)[-1])
        self.assertIn("no attachment index yet", self.find(status=1).stderr)

    def test_a_dry_run_makes_none(self):
        before = self.all_places()
        done = self.compress("-n")
        self.assertNotIn("index of", done.stdout)
        self.assertEqual(self.all_places(), before)

    def test_a_refused_compression_starts_none(self):
        self.mail = os.path.join(self.scratch, "Large")
        self.make_store(20, size=100000)
        first = self.start_ctl("compress", "--maildir", self.mail)
        second = self.events(self.compress("--json", status=75))
        first.send_signal(signal.SIGCONT)
        first.communicate()
        self.assertNotIn("index", second[-1])


class LockAndCancel(IndexCase):
    def setUp(self):
        super().setUp()
        self.make_store(40, size=50000)

    def test_a_second_run_is_refused_while_the_first_goes_on(self):
        first = self.start_ctl("index", "--maildir", self.mail)
        second = self.index("--json", status=75)
        compressing = self.compress(status=75)
        first.send_signal(signal.SIGCONT)
        first.communicate()
        self.assertEqual(first.returncode, 0)
        self.assertIn("another run holds the store", second.stderr)
        self.assertIn("another run holds the store", compressing.stderr)
        self.assertIn("abort", [event["event"] for event in self.events(second)])
        self.assertEqual(len(self.names()), 80)

    def test_find_and_extract_need_no_lock(self):
        self.index()
        first = self.start_ctl("index", "--rebuild", "--maildir", self.mail)
        before = ctl.snapshot(self.mail)
        self.assertEqual(self.names("--name", "a7.txt"), ["a7.txt"])
        self.extract("--name", "a7.txt")
        self.assertEqual(ctl.snapshot(self.mail), before)
        first.send_signal(signal.SIGCONT)
        first.communicate()
        self.assertEqual(first.returncode, 0)

    def test_ctrl_c_ends_cleanly_and_keeps_the_saved_index(self):
        self.index()
        before = self.rows()
        run = self.start_ctl("index", "--rebuild", "--maildir", self.mail)
        run.send_signal(signal.SIGINT)
        run.send_signal(signal.SIGCONT)
        out, err = run.communicate()
        self.assertEqual(run.returncode, 130, err)
        events = [json.loads(line) for line in out.splitlines()]
        self.assertIn("Attachment index canceled for:", [event["message"] for event in events
                                                         if event["event"] == "abort"][0])
        self.assertEqual((events[-1]["event"], events[-1]["exit"]), ("summary", 130))
        self.assertIn("cancelled", err)
        self.assertEqual(self.rows(), before)
        self.assertRegex(self.ctl("status", "--maildir", self.mail).stdout, r"Lock: +free")
        self.index()


if __name__ == "__main__":
    ctl.main()
