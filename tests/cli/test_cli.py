#!/usr/bin/env python3
"""What trevixctl does, command by command."""

import json
import os
import signal
import subprocess
import time

import ctl

COMMANDS = ("compress", "index", "find", "extract", "report", "status", "folders", "config",
            "profile", "log", "watch")


class Help(ctl.Case):
    def test_program_shows_commands_example_and_exit_status(self):
        done = self.ctl("--help")
        for word in COMMANDS + ("Example:", "Exit status: 0 done, 1 failed, 2 usage"):
            self.assertIn(word, done.stdout)
        self.assertEqual(done.stderr, "")

    def test_every_command_shows_an_example_of_itself(self):
        for command in COMMANDS:
            done = self.ctl(command, "--help")
            self.assertIn(f"Usage: trevixctl {command}", done.stdout)
            self.assertIn(f"trevixctl {command}", done.stdout.split("Example:")[1])

    def test_every_sub_command_shows_an_example_of_itself(self):
        for command, names in (("config", ("get", "set", "list", "import", "export")),
                               ("profile", ("add", "list", "remove"))):
            for name in names:
                done = self.ctl(command, name, "--help")
                self.assertIn(f"trevixctl {command} {name}", done.stdout.split("Example:")[1])

    def test_config_help_names_every_setting_twice(self):
        done = self.ctl("config", "--help")
        for word in ("min-size", "ZipBytesCompress", "exclude", "ExcludeCompress", "block"):
            self.assertIn(word, done.stdout)

    def test_version(self):
        self.assertEqual(self.ctl("--version").stdout, "trevixctl 4.0.4737\n")


class Compress(ctl.Case):
    def setUp(self):
        super().setUp()
        self.make_store()
        self.before = ctl.attachments_of(self.mail)

    def names(self):
        """File names of the attachments as they are in the messages."""
        names = []
        for directory, _, files in os.walk(self.mail):
            if os.path.basename(directory) not in ("cur", "new"):
                continue
            for name in files:
                with open(os.path.join(directory, name), "rb") as file:
                    message = ctl.email.message_from_binary_file(
                        file, policy=ctl.email.policy.default)
                names += [part.get_filename() for part in message.iter_attachments()]
        return sorted(names)

    def test_zips_all_attachments_and_keeps_every_byte(self):
        done = self.compress("--no-index")

        self.assertEqual(ctl.attachments_of(self.mail), self.before)
        self.assertEqual(self.names(), ["a0.zip", "a1.zip", "a2.zip", "a3.zip"])
        self.assertRegex(done.stdout, r"^4 messages changed, 8 attachments zipped, 156 KB -> "
                                      r"[0-9.]+ KB \([0-9]+% saved\), [0-9.]+ s\n$")
        self.assertEqual(len(done.stderr.splitlines()), 4)
        self.assertIn("Archive/2019: 2 zipped, ", done.stderr)

    def test_keeps_received_times_and_flags(self):
        self.compress()
        files = [os.path.join(directory, name) for directory, _, names in os.walk(self.mail)
                 for name in names if os.path.basename(directory) == "cur"]
        self.assertEqual(sorted(int(os.stat(file).st_mtime) for file in files),
                         [1190000000 + number for number in range(4)])
        self.assertTrue(all(file.endswith(":2,S") for file in files))

    def test_a_message_rewritten_in_place_is_left_once_and_treated_by_the_next_run(self):
        self.compress("--min-size", "999999999")
        directory = os.path.join(self.mail, "cur")
        name = os.listdir(directory)[0]
        with open(os.path.join(directory, name), "ab") as file:
            file.write(b"\n")

        self.compress(status=3)
        self.assertIn(name, os.listdir(directory))
        self.compress()

        self.assertNotIn(name, os.listdir(directory))
        self.assertEqual(ctl.attachments_of(self.mail), self.before)
        self.assertEqual(self.names(), ["a0.zip", "a1.zip", "a2.zip", "a3.zip"])

    def test_changes_nothing_the_second_time(self):
        self.compress()
        before = ctl.snapshot(*[os.path.join(self.mail, part) for part in ("cur", ".Work/cur")])
        done = self.compress()
        self.assertEqual(
            ctl.snapshot(*[os.path.join(self.mail, part) for part in ("cur", ".Work/cur")]),
            before)
        self.assertIn("0 messages changed, 0 attachments zipped", done.stdout)

    def test_separate_makes_one_archive_an_attachment(self):
        self.compress("--separate")
        self.assertEqual(self.names(), sorted(f"{c}{n}.zip" for c in "ab" for n in range(4)))
        self.assertEqual(ctl.attachments_of(self.mail), self.before)

    def test_options_rule_over_settings_and_are_not_stored(self):
        self.ctl("config", "set", "rollup", "off")
        before = self.read(self.config_file("user.reg"))
        self.compress("--rollup", "--level", "ex", "--min-size", "1")
        self.assertEqual(self.names(), ["a0.zip", "a1.zip", "a2.zip", "a3.zip"])
        self.assertEqual(self.read(self.config_file("user.reg")), before)

    def test_settings_rule_without_options(self):
        self.ctl("config", "set", "rollup", "off")
        self.ctl("config", "set", "exclude", ".doc")
        self.compress()
        self.assertEqual(self.names(), sorted([f"a{n}.zip" for n in range(4)] +
                                              [f"b{n}.doc" for n in range(4)]))

    def test_exclude_and_min_size_leave_attachments_alone(self):
        self.compress("--exclude", ".txt:.zip")
        self.assertEqual(self.names(), sorted([f"a{n}.txt" for n in range(4)] +
                                              [f"b{n}.zip" for n in range(4)]))
        self.compress("--min-size", "1000000")

    def test_min_size_above_all_changes_nothing(self):
        done = self.compress("--min-size", "1000000")
        self.assertIn("0 messages changed", done.stdout)

    def test_levels_differ_in_size(self):
        sizes = {}
        for level in ("ex", "es"):
            done = self.compress("-n", "--json", "--level", level)
            sizes[level] = self.events(done)[-1]["bytes_after"]
        self.assertLess(sizes["ex"], sizes["es"])

    def test_folder_takes_named_folders_alone_without_regard_to_case(self):
        done = self.compress("--folder", "archive/2019", "--folder", "WORK")
        self.assertEqual(self.names(), ["a0.txt", "a1.txt", "a2.zip", "a3.zip", "b0.doc", "b1.doc"])
        self.assertIn("2 messages changed", done.stdout)

    def test_unknown_folder_names_the_closest_and_changes_nothing(self):
        before = ctl.snapshot(self.mail)
        done = self.compress("--folder", "Inbox", "--folder", "Archive/2018", status=1)
        self.assertIn("trevixctl: Archive/2018: no such folder\n", done.stderr)
        self.assertIn("hint: did you mean \"Archive/2019\"", done.stderr)
        self.assertEqual(ctl.snapshot(self.mail), before)

    def test_html_only_zips_nothing(self):
        self.compress("--html-only")
        self.assertIn("a0.txt", self.names())
        self.assertEqual(ctl.attachments_of(self.mail), self.before)

    def test_quiet_says_nothing(self):
        done = self.compress("--quiet")
        self.assertEqual((done.stdout, done.stderr), ("", ""))

    def test_json_is_one_object_a_line_with_a_summary_last(self):
        done = self.compress("--json")
        events = self.events(done)
        self.assertEqual({event["event"] for event in events},
                         {"folder", "progress", "complete", "summary"})
        self.assertEqual(events[-1]["messages_changed"], 4)
        self.assertEqual(events[-1]["attachments_zipped"], 8)
        self.assertEqual(events[-1]["bytes_before"], 160000)
        self.assertEqual([folder["path"] for folder in events[-1]["folders"]],
                         ["Inbox", "Archive", "Archive/2019", "Work"])
        self.assertEqual(done.stderr, "")

    def test_profile_is_taken_when_it_is_the_only_one(self):
        self.ctl("profile", "add", "home", "--maildir", self.mail)
        self.assertIn("4 messages changed", self.ctl("compress").stdout)
        self.assertIn("0 messages changed", self.ctl("compress", "--profile", "home").stdout)

    def test_all_stores_of_a_profile_are_treated(self):
        first = self.mail
        self.mail = os.path.join(self.scratch, "More")
        self.make_store(2)
        self.ctl("profile", "add", "both", "--maildir", first, "--maildir", self.mail)
        self.assertIn("6 messages changed, 12 attachments", self.ctl("compress").stdout)

    def test_server_mode_uses_no_log_file(self):
        self.compress("-n", "--server-mode")
        done = self.compress("--server-mode", "--level", "ex", status=2)
        self.assertIn("--server-mode", done.stderr)

    def test_terminal_gets_a_line_that_is_redrawn(self):
        leader, follower = os.openpty()
        with subprocess.Popen([ctl.TREVIXCTL, "compress", "--maildir", self.mail],
                              env=self.environment(), stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=follower) as run:
            os.close(follower)
            shown = b""
            try:
                while piece := os.read(leader, 65536):
                    shown += piece
            except OSError:  # the end of a terminal
                pass
        os.close(leader)
        self.assertEqual(run.returncode, 0)
        self.assertIn(b"\rInbox 0/1, 0 bytes saved", shown)
        self.assertTrue(shown.endswith(b"\r\x1b[K"), shown)


class DryRun(ctl.Case):
    def setUp(self):
        super().setUp()
        self.make_store()

    def test_writes_nothing_anywhere(self):
        before = self.all_places()
        done = self.compress("--dry-run")
        self.assertEqual(self.all_places(), before)
        self.assertIn("dry run, nothing was written: 4 messages would change, 8 attachments",
                      done.stdout)
        self.assertRegex(done.stdout, r"Total +8 +156 KB")

    def test_writes_nothing_beside_the_results_of_an_earlier_run(self):
        self.compress("--folder", "Work")
        self.ctl("config", "set", "reset-folders", "on")
        before = self.all_places()
        done = self.compress("-n")
        self.assertEqual(self.all_places(), before)
        self.assertIn("3 messages would change", done.stdout)

    def test_tells_what_the_real_run_then_does(self):
        dry = self.events(self.compress("-n", "--json"))[-1]
        real = self.events(self.compress("--json"))[-1]
        for name in ("messages_changed", "attachments_zipped", "bytes_before", "bytes_after",
                     "folders"):
            self.assertEqual(dry[name], real[name], name)
        self.assertTrue(dry["dry_run"])
        self.assertFalse(real["dry_run"])

    def test_separate_replaces_each_message_several_times(self):
        before = self.all_places()
        done = self.compress("-n", "--separate", "--html")
        self.assertEqual(self.all_places(), before)
        self.assertIn("4 messages would change, 8 attachments", done.stdout)

    def test_works_on_a_store_that_may_only_be_read(self):
        self.as_ordinary_user()
        os.chmod(os.path.join(self.mail, "cur"), 0o500)
        os.chmod(self.mail, 0o500)
        self.addCleanup(os.chmod, self.mail, 0o700)
        self.assertIn("4 messages would change", self.compress("-n").stdout)

    def test_looking_commands_write_nothing_to_the_store(self):
        self.compress()
        config = os.path.join(self.scratch, "home", ".config")
        temporary = os.path.join(self.scratch, "tmp")
        before = ctl.snapshot(self.mail, config), os.listdir(temporary)
        for command in ("status", "folders", "report"):
            self.ctl(command, "--maildir", self.mail)
        self.assertEqual((ctl.snapshot(self.mail, config), os.listdir(temporary)), before)


class Lock(ctl.Case):
    def setUp(self):
        super().setUp()
        self.make_store(40, size=100000)

    def test_second_run_is_refused_while_the_first_goes_on(self):
        first = self.start_ctl("compress", "--maildir", self.mail)

        second = self.compress("--json", status=75)
        status = self.ctl("status", "--maildir", self.mail)
        dry = self.compress("-n")
        first.send_signal(signal.SIGCONT)
        first.communicate()

        self.assertIn("another run holds the store", second.stderr)
        self.assertIn("hint: ", second.stderr)
        self.assertIn("abort", [event["event"] for event in self.events(second)])
        self.assertRegex(status.stdout, r"Lock: +held since \d+/\d+/\d+ ")
        self.assertIn("would change", dry.stdout)
        self.assertEqual(first.returncode, 0)
        self.assertRegex(self.ctl("status", "--maildir", self.mail).stdout, r"Lock: +free")


class CtrlC(ctl.Case):
    def test_ends_cleanly_at_the_next_message_and_goes_on_later(self):
        self.make_store(40, size=100000)
        before = ctl.attachments_of(self.mail)
        run = self.start_ctl("compress", "--maildir", self.mail)
        run.send_signal(signal.SIGINT)
        run.send_signal(signal.SIGCONT)
        out, err = run.communicate()

        self.assertEqual(run.returncode, 130, err)
        events = [json.loads(line) for line in out.splitlines()]
        self.assertIn({"event": "abort", "message": "Cancelled"}, events)
        self.assertEqual(events[-1]["event"], "summary")
        self.assertEqual(events[-1]["exit"], 130)
        self.assertLess(events[-1]["messages_changed"], 40)
        self.assertEqual(ctl.attachments_of(self.mail), before)
        self.assertRegex(self.ctl("status", "--maildir", self.mail).stdout, r"Lock: +free")
        rest = self.events(self.compress("--json"))[-1]["messages_changed"]
        self.assertEqual(rest, 40 - events[-1]["messages_changed"])
        self.assertEqual(ctl.attachments_of(self.mail), before)

    def test_second_one_ends_at_once(self):
        ctl.make_folder(self.mail)
        ctl.deliver(self.mail, 1, [("large.txt", ctl.text_of("large", 40000000))])
        before = ctl.attachments_of(self.mail)
        run = self.start_ctl("compress", "--maildir", self.mail, "--level", "ex")
        # Several of one signal that arrive together count as one, so the second waits for the
        # first to be taken.
        run.send_signal(signal.SIGINT)
        run.send_signal(signal.SIGCONT)
        deadline = time.monotonic() + 60
        while self.has_pending_signal(run.pid) and time.monotonic() < deadline:
            pass
        run.send_signal(signal.SIGINT)
        _, err = run.communicate()

        self.assertEqual(run.returncode, 130, err)
        self.assertIn("ended at once", err)
        self.assertEqual(ctl.attachments_of(self.mail), before)

    @staticmethod
    def has_pending_signal(pid):
        try:
            with open(f"/proc/{pid}/status", encoding="ascii") as file:
                for line in file:
                    if line.startswith("ShdPnd:"):
                        return int(line.split()[1], 16) != 0
        except (FileNotFoundError, ProcessLookupError):
            pass
        return False


class Looking(ctl.Case):
    def setUp(self):
        super().setUp()
        self.make_store()
        self.compress("--no-index")

    def test_report_shows_the_last_run(self):
        done = self.ctl("report", "--maildir", self.mail)
        self.assertIn("Compression run of ", done.stdout)
        self.assertRegex(done.stdout, r"Archive\\2019 +2 +40,000 ")
        self.assertRegex(done.stdout, r"Total +8 +160,000 ")
        rows = self.events(self.ctl("report", "--maildir", self.mail, "--json"))
        self.assertEqual(rows[-2]["path"], "Total")

    def test_report_writes_the_page_as_it_is_stored(self):
        page = self.ctl("report", "--maildir", self.mail, "--html", "-").stdout
        self.assertTrue(page.startswith("<html><head><title>Trevix Compress Attachments Log "))
        self.assertTrue(page.endswith("</body></html>"))
        self.ctl("report", "--maildir", self.mail, "--html", "page.html")
        self.assertEqual(self.read(os.path.join(self.scratch, "page.html")), page)
        self.ctl("report", "--maildir", self.mail, "--html", "no/such/page.html", status=1)

    def test_report_opens_the_page_in_a_browser(self):
        opener = os.path.join(self.scratch, "bin", "xdg-open")
        os.mkdir(os.path.dirname(opener))
        self.write(opener, '#!/bin/sh\ncp "$1" "$HOME/shown.html"\n')
        os.chmod(opener, 0o700)
        path = os.path.dirname(opener) + ":" + os.environ["PATH"]
        self.ctl("report", "--maildir", self.mail, "--open", PATH=path)
        shown = self.read(os.path.join(self.scratch, "home", "shown.html"))
        self.assertTrue(shown.startswith("<html>"))
        done = self.ctl("report", "--maildir", self.mail, "--open", status=1, PATH="/nonexistent")
        self.assertIn("xdg-open", done.stderr)

    def test_report_without_a_run_says_so(self):
        fresh = os.path.join(self.scratch, "Fresh")
        ctl.make_folder(fresh)
        done = self.ctl("report", "--maildir", fresh, status=1)
        self.assertIn("no compression run was finished on this store yet", done.stderr)

    def test_status_shows_lock_totals_and_marks(self):
        done = self.ctl("status", "--maildir", self.mail)
        self.assertRegex(done.stdout, r"Store: +Mail\n")
        self.assertRegex(done.stdout, r"Lock: +free\n")
        self.assertRegex(done.stdout, r"Zipped: +160,000 bytes before, [0-9,]+ after")
        self.assertRegex(done.stdout, r"Last index: +never\n")
        self.assertRegex(done.stdout, r"Archive/2019 +\d+/\d+/\d+ .* never +0 +0\n")
        events = self.events(self.ctl("status", "--maildir", self.mail, "--json"))
        self.assertEqual([event["event"] for event in events],
                         ["store"] + ["folder"] * 4 + ["status", "summary"])

    def test_folders_show_the_tree_with_counts_and_ids(self):
        ctl.deliver(os.path.join(self.mail, ".Work"), 50, [])
        done = self.ctl("folders", "--maildir", self.mail)
        self.assertRegex(done.stdout, r"\n  Inbox +1 +1\n  Archive +1 +1\n    2019 +1 +1\n"
                                      r"  Work +2 +1\n$")
        with_ids = self.ctl("folders", "--maildir", self.mail, "--ids").stdout
        self.assertRegex(with_ids, r"Inbox +1 +1  [0-9A-F]{70,},[0-9A-F]{70,}\n")
        events = self.events(self.ctl("folders", "--maildir", self.mail, "--json"))
        self.assertEqual(events[3]["path"], "Work")
        self.assertEqual((events[3]["messages"], events[3]["with_attachments"]), (2, 1))

    def test_log_shows_lines_last_lines_and_new_lines(self):
        whole = self.ctl("log").stdout.splitlines()
        self.assertGreater(len(whole), 4)
        self.assertIn("TrevixCI Version 4.0.4737", whole[0])
        self.assertEqual(self.ctl("log", "-n", "3").stdout.splitlines(), whole[-3:])

        follow = subprocess.Popen([ctl.TREVIXCTL, "log", "-n", "1", "--follow"], text=True,
                                  env=self.environment(), stdout=subprocess.PIPE)
        self.addCleanup(self.end, follow)
        self.assertEqual(follow.stdout.readline().rstrip("\n"), whole[-1])
        with open(os.path.join(self.scratch, "tmp", f"trevix-{os.geteuid()}", "ZipTemp",
                               "trevix.log"), "a", encoding="utf-8") as log:
            log.write("a new line\r\n")
        self.assertEqual(follow.stdout.readline(), "a new line\n")
        follow.send_signal(signal.SIGINT)
        self.assertEqual(follow.wait(ctl.SECONDS), 130)

    def test_log_says_that_there_is_none(self):
        done = self.ctl("log", status=1, TMPDIR=os.path.join(self.scratch, "home"))
        self.assertIn("no log was written yet", done.stderr)


class Config(ctl.Case):
    def test_set_get_and_default(self):
        self.assertEqual(self.ctl("config", "get", "min-size").stdout, "0\n")
        self.ctl("config", "set", "min-size", "20000")
        self.assertEqual(self.ctl("config", "get", "ZipBytesCompress").stdout, "20000\n")
        self.assertIn('"ZipBytesCompress"=dword:00004e20', self.read(self.config_file("user.reg")))
        self.ctl("config", "set", "min-size", "--default")
        self.assertEqual(self.ctl("config", "get", "min-size").stdout, "0\n")
        self.assertNotIn("ZipBytesCompress", self.read(self.config_file("user.reg")))

    def test_list_shows_value_default_and_source(self):
        self.ctl("config", "set", "level", "ex")
        text = self.ctl("config", "list").stdout
        self.assertIn("    value    ex\n    default  std\n    from     " +
                      self.config_file("user.reg"), text)
        events = self.events(self.ctl("config", "list", "--json"))
        level = next(event for event in events if event.get("name") == "level")
        self.assertEqual((level["value"], level["default"], level["value_name"]),
                         ("ex", "std", "Level"))

    def test_bad_values_and_names_are_refused_and_write_nothing(self):
        for arguments in (("min-size", "lots"), ("min-size", "-5"), ("min-size", "99999999999"),
                          ("rollup", "maybe"), ("level", "best"), ("exclude", "zip"),
                          ("colour", "red"), ("min-size",), ("min-size", "5", "--default")):
            done = self.ctl("config", "set", *arguments, status=2)
            self.assertIn("trevixctl: ", done.stderr)
            self.assertIn("\nhint: ", done.stderr)
        self.ctl("config", "get", "colour", status=2)
        self.assertFalse(os.path.exists(self.config_file("user.reg")))

    def test_reading_writes_nothing(self):
        self.ctl("config", "list")
        self.ctl("config", "get", "level")
        self.ctl("config", "export")
        self.assertEqual(os.listdir(os.path.join(self.scratch, "home")), [])

    def test_export_and_import_carry_settings_over(self):
        self.ctl("config", "set", "exclude", ".zip:.jpg")
        self.ctl("config", "set", "rollup", "off")
        self.ctl("config", "export", "saved.reg")
        saved = self.read(os.path.join(self.scratch, "saved.reg"))
        self.assertTrue(saved.startswith("Windows Registry Editor Version 5.00"))
        self.assertEqual(self.ctl("config", "export").stdout, saved)
        self.ctl("config", "export", "saved.reg", status=1)

        os.remove(self.config_file("user.reg"))
        self.ctl("config", "import", "saved.reg")
        self.assertEqual(self.ctl("config", "get", "exclude").stdout, ".zip:.jpg\n")
        self.assertEqual(self.ctl("config", "get", "rollup").stdout, "off\n")

    def test_import_refuses_what_it_cannot_take_over_whole(self):
        head = "Windows Registry Editor Version 5.00\n\n"
        key = ("[HKEY_CURRENT_USER\\Software\\Microsoft\\Office\\Outlook\\Addins\\"
               "QuellmarTrevix.Connect]\n")
        path = os.path.join(self.scratch, "bad.reg")
        for text, complaint in ((head + key + '"Level="-ex"\n', "bad.reg:4: "),
                                (head + key + '"ErrorLogSize"="lots"\n', "\"lots\" is not a number"),
                                (head + key + '"Level"=-\n', "bad.reg:4: lines that delete"),
                                (head + "[HKEY_LOCAL_MACHINE\\Software\\X]\n",
                                 "HKEY_LOCAL_MACHINE"),
                                ("something else\n", "bad.reg:1: ")):
            self.write(path, text)
            done = self.ctl("config", "import", path, status=1)
            self.assertIn(complaint, done.stderr)
            self.assertFalse(os.path.exists(self.config_file("user.reg")))
        self.ctl("config", "import", "missing.reg", status=1)


class Profile(ctl.Case):
    def setUp(self):
        super().setUp()
        self.make_store(1)

    def test_add_list_and_remove(self):
        self.ctl("profile", "add", "home", "--maildir", self.mail, "--user", "Ann Example")
        self.assertEqual(self.ctl("profile", "list").stdout,
                         f"home (Ann Example)\n    maildir:{self.mail}\n")
        events = self.events(self.ctl("profile", "list", "--json"))
        self.assertEqual(events[0]["stores"], ["maildir:" + self.mail])
        self.ctl("profile", "add", "home", "--maildir", self.mail, status=1)
        self.ctl("profile", "remove", "home")
        self.ctl("profile", "remove", "home", status=1)
        self.assertEqual(self.ctl("profile", "list").stdout, "")

    def test_relative_directories_become_absolute(self):
        self.ctl("profile", "add", "home", "--maildir", "Mail")
        self.assertIn("maildir:" + self.mail, self.ctl("profile", "list").stdout)

    def test_servers_and_directories_in_one_profile(self):
        self.ctl("profile", "add", "all", "--store", "IMAPS://ann@example.org@Imap.example.org:993/",
                 "--store", "imap://ben@[::1]:1143", "--maildir", self.mail,
                 "--inbox", "imaps://ann@example.org@imap.example.org")
        self.assertEqual(self.ctl("profile", "list").stdout,
                         f"all\n    maildir:{self.mail}\n"
                         "    imaps://ann%40example.org@imap.example.org  (Inbox)\n"
                         "    imap://ben@[::1]:1143\n")

    def test_bad_ones_are_refused(self):
        self.ctl("profile", "add", "home", status=2)
        self.ctl("profile", "add", "home", "--store", "imap.example.org", status=1)
        self.ctl("profile", "add", "a:b", "--maildir", self.mail, status=2)
        self.ctl("profile", "add", "home", "--maildir", "nowhere", status=1)
        self.ctl("profile", "add", "home", "--maildir", self.mail, "--inbox", "elsewhere",
                 status=1)
        self.assertEqual(self.ctl("profile", "list").stdout, "")


if __name__ == "__main__":
    ctl.main()
