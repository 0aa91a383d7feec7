#!/usr/bin/python3
"""trevixctl as a client of the service: what it shows is what it shows of runs of its own."""

import json
import os
import re
import signal
import subprocess
import time

import bus
import ctl

TREVIXCTL = os.environ.get("TREVIXCTL", "")


class ClientCase(bus.Case):
    def setUp(self):
        if not TREVIXCTL:
            self.skipTest("TREVIXCTL does not name the program")
        super().setUp()
        # Both sides with the user's settings: the service takes them where "Tray" is.
        self.ctl("config", "set", "tray", "on")

    def variables(self, with_bus=True):
        variables = dict(self.bus.environment)
        if with_bus:
            variables["DBUS_SESSION_BUS_ADDRESS"] = self.bus.address
        return variables

    def ctl(self, *words, status=0, with_bus=True):
        done = subprocess.run([TREVIXCTL, *words], env=self.variables(with_bus), text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=bus.SECONDS, check=False)
        self.assertEqual(done.returncode, status, f"{words}\n{done.stdout}{done.stderr}")
        return done

    def start(self, *words):
        run = subprocess.Popen([TREVIXCTL, *words, "--json"], env=self.variables(), text=True,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE)
        self.addCleanup(self.end, run)
        return run

    def end(self, run):
        if run.poll() is None:
            run.kill()
        run.communicate()

    def start_in_folder(self, *words):
        """A run in the service whose session is stopped when its first folder was told."""
        run = self.start(*words)
        event = json.loads(run.stdout.readline())
        self.assertIn(event["event"], ("folder", "FolderChange"))
        (session,) = self.bus.sessions()
        os.kill(session, signal.SIGSTOP)
        return run, session

    def wait_exit(self, run, seconds=bus.SECONDS):
        out, err = run.communicate(timeout=seconds)
        events = [json.loads(line) for line in out.splitlines()]
        self.assertEqual((events[-1]["event"], events[-1]["exit"]), ("summary", run.returncode))
        return events, err

    def twin(self):
        """A second store with the same mail."""
        first, self.mail = self.mail, os.path.join(self.bus.scratch, "twin", "Mail")
        self.make_store(messages=12)
        second, self.mail = self.mail, first
        return second


def comparable(text):
    """Without what differs from run to run."""
    text = re.sub(r"[0-9.]+ (s|min)\b", "TIME", text)
    return re.sub(r"index [0-9.,]+ (bytes|KB)", "index SIZE", text)


def comparable_events(done):
    """The events but progress, of which there are as many as there is time."""
    events = []
    for line in done.stdout.splitlines():
        event = json.loads(line)
        if event["event"] == "progress":
            continue
        for fields in (event, event.get("index", {})):
            for name in ("elapsed_ms", "index_bytes"):
                fields.pop(name, None)
        events.append(event)
    return events


class SameAsHere(ClientCase):
    def setUp(self):
        super().setUp()
        self.make_store(messages=12)
        self.other = self.twin()

    def both(self, command, *words, status=0):
        theirs = self.ctl(command, "--service", "--maildir", self.mail, *words, status=status)
        ours = self.ctl(command, "--maildir", self.other, *words, status=status)
        self.assertEqual(comparable(theirs.stderr.replace(self.mail, self.other)),
                         comparable(ours.stderr))
        return theirs, ours

    def test_compress_says_the_same(self):
        theirs, ours = self.both("compress")
        self.assertEqual(comparable(theirs.stdout), comparable(ours.stdout))
        self.assertIn("12 messages changed, 24 attachments zipped", theirs.stdout)
        self.assertEqual(self.zipped(), 12)

    def test_a_run_with_nothing_to_do_says_the_same(self):
        self.both("compress")
        theirs, ours = self.both("compress")
        self.assertEqual(comparable(theirs.stdout), comparable(ours.stdout))
        self.assertIn("0 messages changed", theirs.stdout)

    def test_compress_raises_the_same_events(self):
        theirs, ours = self.both("compress", "--json")
        self.assertEqual(comparable_events(theirs), comparable_events(ours))
        self.assertEqual(comparable_events(theirs)[-1]["index"]["rows"], 24)

    def test_compress_of_one_folder_treats_it_alone(self):
        theirs, ours = self.both("compress", "--no-index", "--folder", "Work")
        self.assertEqual(comparable(theirs.stdout), comparable(ours.stdout))
        self.assertEqual(self.zipped(), 4)

    def test_index_says_the_same(self):
        for words in ((), ("--rebuild",), ("--json",)):
            theirs, ours = self.both("index", *words)
            if words == ("--json",):
                self.assertEqual(comparable_events(theirs), comparable_events(ours))
            else:
                self.assertEqual(comparable(theirs.stdout), comparable(ours.stdout))
        found = [self.ctl("find", "--maildir", mail, "--csv").stdout
                 for mail in (self.mail, self.other)]
        self.assertEqual(len(found[0].splitlines()), 25)

    def test_quiet_is_quiet(self):
        theirs, _ = self.both("compress", "--quiet")
        self.assertEqual(theirs.stdout + theirs.stderr, "")

    def test_a_message_that_cannot_be_saved_is_told_of(self):
        for mail in (self.mail, self.other):
            os.rmdir(os.path.join(mail, ".Archive", "tmp"))
            with open(os.path.join(mail, ".Archive", "tmp"), "w", encoding="utf-8"):
                pass
        theirs, ours = self.both("compress", status=3)
        self.assertEqual(comparable(theirs.stdout), comparable(ours.stdout))
        self.assertIn("trevixctl: Archive: err at save", theirs.stderr)

    def test_a_store_that_is_not_there_is_told_of(self):
        theirs = self.ctl("compress", "--service", "--maildir", "/nowhere", status=1)
        ours = self.ctl("compress", "--maildir", "/nowhere", status=1)
        self.assertEqual((theirs.stdout, theirs.stderr), (ours.stdout, ours.stderr))

    def test_a_folder_that_is_not_there_is_told_of(self):
        self.both("compress", "--folder", "Wrk", status=1)

    def test_a_profile_is_found_by_the_service(self):
        self.ctl("profile", "add", "home", "--maildir", self.mail)
        done = self.ctl("compress", "--service", "--profile", "home")
        self.assertIn("12 messages changed", done.stdout)


class Usage(ClientCase):
    def test_options_that_cannot_cross_the_bus_are_refused_before_anything_starts(self):
        self.make_store(messages=1)
        for words in (("--separate",), ("--rollup",), ("--level", "ex"), ("--min-size", "1"),
                      ("--exclude", ".x"), ("--custom-items",), ("--dry-run",),
                      ("--server-mode",)):
            done = self.ctl("compress", "--service", "--maildir", self.mail, *words, status=2)
            self.assertIn(f"trevixctl: {words[0]}: not together with --service", done.stderr)
            self.assertIn("\nhint: ", done.stderr)
        self.ctl("index", "--service", "--server-mode", "--maildir", self.mail, status=2)
        self.ctl("watch", "--server-mode", "--maildir", self.mail, status=2)
        self.ctl("compress", "--service", "--system-service", "--maildir", self.mail, status=2)
        done = self.ctl("compress", "--system-service", "--folder", "a", "--maildir", self.mail,
                        status=2)
        self.assertIn("--folder: not together with --system-service", done.stderr)
        self.assertEqual(self.bus.processes(), {})
        self.assertEqual(self.zipped(), 0)

    def test_without_a_bus_one_complaint_says_so(self):
        self.make_store(messages=1)
        for command in ("compress", "index"):
            done = self.ctl(command, "--service", "--maildir", self.mail, status=1, with_bus=False)
            self.assertIn("trevixctl: service: the session bus cannot be reached", done.stderr)
            self.assertEqual(len(done.stderr.splitlines()), 2)

    def test_without_the_service_one_complaint_says_so(self):
        self.make_store(messages=1)
        os.remove(os.path.join(self.bus.scratch, "services", bus.NAME + ".service"))
        bus.subprocess.run(["dbus-send", f"--bus={self.bus.address}", "--print-reply",
                            "--dest=org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus.ReloadConfig"], check=True,
                           stdout=subprocess.DEVNULL)
        done = self.ctl("compress", "--service", "--maildir", self.mail, status=1)
        self.assertIn("trevixctl: service: no session was made: ", done.stderr)
        self.assertIn("hint: it is not installed for this bus", done.stderr)

    def test_a_service_that_cannot_start_is_told_of(self):
        self.make_store(messages=1)
        self.bus.write(f"services/{bus.NAME}.service",
                       f"[D-BUS Service]\nName={bus.NAME}\nExec=/bin/false\n")
        done = self.ctl("compress", "--service", "--maildir", self.mail, status=1)
        self.assertEqual(len(done.stderr.splitlines()), 2)


class Interrupts(ClientCase):
    def setUp(self):
        super().setUp()
        self.make_store(messages=30, size=60000)

    def test_ctrl_c_cancels_over_the_bus(self):
        run, session = self.start_in_folder("compress", "--service", "--maildir", self.mail)
        run.send_signal(signal.SIGINT)
        # The client takes the signal while the service does not answer.
        bus.wait_for(lambda: self.is_sleeping(run), "the client's rest")
        os.kill(session, signal.SIGCONT)
        events, err = self.wait_exit(run)
        self.assertEqual(run.returncode, 130)
        self.assertIn({"event": "abort", "message": "Cancelled"}, events)
        self.assertIn("cancelled", err)
        self.assertLess(self.zipped(), 30)
        self.assert_free()

    def is_sleeping(self, run):
        """Whether the process waits with no signal left to take."""
        with open(f"/proc/{run.pid}/status", encoding="utf-8") as file:
            status = file.read()
        pending = re.findall(r"(?m)^(?:Sig|Shd)Pnd:\s+0*([0-9a-f]*)$", status)
        return re.search(r"(?m)^State:\s+S", status) and not any(pending)

    def test_ctrl_c_cancels_an_index_run(self):
        run, session = self.start_in_folder("index", "--service", "--maildir", self.mail)
        run.send_signal(signal.SIGINT)
        bus.wait_for(lambda: self.is_sleeping(run), "the client's rest")
        os.kill(session, signal.SIGCONT)
        self.wait_exit(run)
        self.assertEqual(run.returncode, 130)
        self.assertIn("no attachment index yet",
                      self.ctl("find", "--maildir", self.mail, status=1).stderr)

    def test_a_second_ctrl_c_leaves_at_once(self):
        run, session = self.start_in_folder("compress", "--service", "--maildir", self.mail)
        run.send_signal(signal.SIGINT)
        bus.wait_for(lambda: self.is_sleeping(run), "the client's rest")
        run.send_signal(signal.SIGINT)
        _, err = run.communicate(timeout=30)
        self.assertEqual(run.returncode, 130)
        self.assertIn("left the service", err)
        os.kill(session, signal.SIGCONT)
        bus.wait_for(lambda: not self.bus.sessions(), "the end of the session")
        self.assertLess(self.zipped(), 30)
        self.assert_free()

    def test_a_run_that_is_held_up_by_another_says_so(self):
        session, manage = self.start_paused()
        done = self.ctl("compress", "--service", "--maildir", self.mail, status=75)
        self.assertIn("another run holds the store", done.stderr)
        self.ctl("index", "--service", "--maildir", self.mail, status=75)
        session.go_on()
        self.assertEqual(manage.wait_end()[0], "Complete")


class Vanishing(ClientCase):
    def setUp(self):
        super().setUp()
        self.make_store(messages=30, size=60000)

    def assert_gone(self, run):
        events, err = self.wait_exit(run, 30)
        self.assertEqual(run.returncode, 1)
        complaints = [line for line in err.splitlines() if line.startswith("trevixctl: ")]
        self.assertEqual(len(complaints), 1, err)
        self.assertEqual(sum(event["event"] == "error" for event in events), 1)
        return complaints[0]

    def test_a_session_that_is_killed_is_noticed_at_once(self):
        for command in ("compress", "index"):
            run, session = self.start_in_folder(command, "--service", "--maildir", self.mail)
            began = time.monotonic()
            os.kill(session, signal.SIGKILL)
            self.assertEqual(self.assert_gone(run), "trevixctl: service: the service is gone")
            self.assertLess(time.monotonic() - began, 15)
            bus.wait_for(lambda: not self.bus.sessions(), "the end of the session")
            os.remove(os.path.join(self.mail, "trevix-associated.db"))

    def test_a_watched_session_that_is_killed_is_noticed(self):
        run, session = self.start_in_folder("watch", "--maildir", self.mail)
        os.kill(session, signal.SIGKILL)
        self.assertEqual(self.assert_gone(run), "trevixctl: service: the service is gone")

    def test_a_bus_that_ends_is_noticed(self):
        run, session = self.start_in_folder("compress", "--service", "--maildir", self.mail)
        self.bus.stop()
        self.assertEqual(self.assert_gone(run), "trevixctl: service: the message bus is gone")
        os.kill(session, signal.SIGCONT)

    def test_a_client_that_is_killed_leaves_a_free_store(self):
        run, session = self.start_in_folder("compress", "--service", "--maildir", self.mail)
        run.kill()
        run.wait()
        os.kill(session, signal.SIGCONT)
        bus.wait_for(lambda: not self.bus.sessions(), "the end of the session")
        self.assert_free()

    def test_a_client_that_stops_reading_for_a_while_misses_nothing(self):
        run, session = self.start_in_folder("compress", "--service", "--maildir", self.mail)
        run.send_signal(signal.SIGSTOP)
        os.kill(session, signal.SIGCONT)
        bus.wait_for(lambda: self.zipped() == 30, "the end of the run")
        run.send_signal(signal.SIGCONT)
        events, _ = self.wait_exit(run)
        self.assertEqual((run.returncode, events[-1]["messages_changed"]), (0, 30))


class Watch(ClientCase):
    def test_shows_every_event_of_both_runs_in_order(self):
        self.make_store(messages=6)
        lines = self.ctl("watch", "--maildir", self.mail).stdout.splitlines()
        runs = [line.split()[0] for line in lines]
        self.assertEqual(runs, sorted(runs, reverse=True))
        manage = [line for line in lines if line.startswith("Manage ")]
        self.assertEqual(manage[:4], ['Manage FolderChange "Inbox" 2', 'Manage Progress "Inbox" 1',
                                      'Manage Progress "Inbox" 2',
                                      'Manage FolderChange "Archive" 2'])
        self.assertRegex(manage[-1], r"^Manage Complete \d+$")
        self.assertIn('Index FolderChange "Inbox" 2', lines)
        self.assertRegex(lines[-1], r"^Index Complete \d+$")

    def test_gives_programs_the_same(self):
        self.make_store(messages=3)
        events = [json.loads(line) for line in
                  self.ctl("watch", "--json", "--maildir", self.mail).stdout.splitlines()]
        self.assertEqual(events[0], {"event": "FolderChange", "run": "Manage", "text": "Inbox",
                                     "count": 1})
        self.assertEqual(events[-1], {"event": "summary", "exit": 0})

    def test_starts_what_is_asked_for_and_nothing_else(self):
        self.make_store(messages=3)
        lines = self.ctl("watch", "--index-only", "--maildir", self.mail).stdout.splitlines()
        self.assertEqual({line.split()[0] for line in lines}, {"Index"})
        self.assertEqual(self.zipped(), 0)
        lines = self.ctl("watch", "--no-index", "--maildir", self.mail).stdout.splitlines()
        self.assertEqual({line.split()[0] for line in lines}, {"Manage"})

    def test_ctrl_c_cancels(self):
        self.make_store(messages=30, size=60000)
        run, session = self.start_in_folder("watch", "--maildir", self.mail)
        run.send_signal(signal.SIGINT)
        os.kill(session, signal.SIGCONT)
        events, _ = self.wait_exit(run)
        self.assertEqual(run.returncode, 130)
        self.assertIn("Abort", [event["event"] for event in events])


class Details(ClientCase):
    """What the client asks of the service beyond the classes' own members."""

    def test_tell_what_a_run_has_done_before_its_end(self):
        self.make_store(messages=6)
        session = self.logged_on()
        details = bus.Object(session.client, session.name, session.path,
                             bus.DETAILS).listen()
        manage = session.manage()
        manage.set("Compress", True)
        manage.call("Manage", "b", False)
        manage.wait_end()
        last = details.events[-1]
        self.assertEqual(last[:2] + last[4:5], ("ManageFigures", 6, 12))
        folders = "".join(event[8] for event in details.events)
        self.assertIn("Inbox", folders.splitlines())
        self.assertEqual(len(folders.splitlines()), len(set(folders.splitlines())))

    def test_tell_why_a_log_on_was_refused(self):
        session = self.session().logon("maildir:/nowhere")
        details = bus.Object(session.client, session.name, session.path, bus.DETAILS)
        self.assertIn("/nowhere", details.get("LogonFailure"))


if __name__ == "__main__":
    bus.main()
