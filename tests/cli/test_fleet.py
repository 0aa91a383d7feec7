#!/usr/bin/env python3
"""Runs over many mailboxes: lists, processes, exit codes, and what is left when one is killed."""

import json
import os
import select
import signal
import subprocess

import ctl


def is_running(process):
    """Whether there is such a process, one that nobody has reaped apart."""
    try:
        with open(f"/proc/{process}/stat", encoding="ascii", errors="replace") as file:
            return file.read().rsplit(")", 1)[1].split()[0] != "Z"
    except FileNotFoundError:
        return False


def children_of(process):
    with open(f"/proc/{process}/task/{process}/children", encoding="ascii") as file:
        return [int(word) for word in file.read().split()]


def is_part(process):
    with open(f"/proc/{process}/cmdline", "rb") as file:
        return b"--part-of=" in file.read()


class FleetCase(ctl.Case):
    def make_stores(self, names, messages=2, size=20000):
        """A Maildir for each name; their addresses."""
        addresses = []
        for name in names:
            self.mail = os.path.join(self.scratch, name)
            self.make_store(messages=messages, size=size)
            addresses.append("maildir:" + self.mail)
        return addresses

    def list_file(self, *lines):
        path = os.path.join(self.scratch, "list")
        self.write(path, "".join(line + "\n" for line in lines))
        return path

    def fleet(self, *arguments, status=0, **extra):
        """The lines of the mailboxes by name, and the summary."""
        done = self.ctl("compress", "--users-from", *arguments, status=status, **extra)
        events = self.events(done)
        self.assertTrue(all(event["event"] == "mailbox" for event in events[:-1]), events)
        return {event["mailbox"]: event for event in events[:-1]}, events[-1], done

    def start_fleet(self, *arguments):
        """A fleet in a session of its own."""
        run = subprocess.Popen([ctl.TREVIXCTL, "compress", "--users-from", *arguments],
                               env=self.environment(), text=True, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, cwd=self.scratch,
                               start_new_session=True)
        self.addCleanup(self.end, run)
        return run

    def hold(self, address):
        """Another run on the store, stopped in its middle."""
        return self.start_ctl("compress", "--profile", address)


class Lists(FleetCase):
    def test_treats_each_mailbox_of_a_list(self):
        addresses = self.make_stores(("one", "two", "three"))
        before = {address: ctl.attachments_of(address[8:]) for address in addresses}

        lines, summary, _ = self.fleet(self.list_file(*addresses))

        self.assertEqual(set(lines), set(addresses))
        for number, address in enumerate(addresses, 1):
            self.assertEqual(lines[address]["outcome"], "done")
            self.assertEqual(lines[address]["exit"], 0)
            self.assertEqual(lines[address]["number"], number)
            self.assertEqual(lines[address]["messages_changed"], 2)
            self.assertEqual(lines[address]["errors"], [])
            self.assertIn("index", lines[address])
            self.assertEqual(ctl.attachments_of(address[8:]), before[address])
        self.assertEqual((summary["mailboxes"], summary["done"]), (3, 3))
        self.assertEqual(summary["messages_changed"], 6)
        self.assertEqual(summary["attachments_zipped"], 12)
        self.assertEqual(summary["bytes_saved"], sum(line["bytes_saved"] for line in lines.values()))

    def test_does_the_same_side_by_side(self):
        addresses = self.make_stores([f"box{number}" for number in range(6)])
        lines, summary, _ = self.fleet(self.list_file(*addresses), "--jobs", "3")
        self.assertEqual(set(lines), set(addresses))
        self.assertEqual(summary["done"], 6)
        again, summary, _ = self.fleet(self.list_file(*addresses), "--jobs", "6")
        self.assertEqual({line["messages_changed"] for line in again.values()}, {0})
        self.assertEqual(summary["messages_changed"], 0)

    def test_reads_the_standard_input(self):
        address, = self.make_stores(("one",))
        done = subprocess.run([ctl.TREVIXCTL, "compress", "--users-from", "-"], text=True,
                              input=address + "\n", env=self.environment(), check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=ctl.SECONDS)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.events(done)[0]["mailbox"], address)

    def test_passes_over_comments_blanks_and_repetitions(self):
        address, = self.make_stores(("one",))
        lines, summary, _ = self.fleet(self.list_file("# ours", "", "  " + address + "\t\r", address))
        self.assertEqual(list(lines), [address])
        self.assertEqual(summary["mailboxes"], 1)

    def test_takes_profiles(self):
        self.make_stores(("one",))
        self.ctl("profile", "add", "home", "--maildir", self.mail)
        lines, _, _ = self.fleet(self.list_file("home"))
        self.assertEqual(lines["home"]["messages_changed"], 2)

    def test_an_empty_list_is_done(self):
        lines, summary, _ = self.fleet(self.list_file("# nobody"))
        self.assertEqual((lines, summary["mailboxes"]), ({}, 0))

    def test_a_missing_list(self):
        done = self.ctl("compress", "--users-from", "/nowhere", status=1)
        self.assertIn("/nowhere", done.stderr)
        self.assertEqual(self.events(done)[0]["event"], "error")

    def test_options_go_for_each_run(self):
        address, = self.make_stores(("one",))
        before = ctl.snapshot(address[8:])
        lines, _, _ = self.fleet(self.list_file(address), "--dry-run", "--separate", "--folder",
                                 "Inbox")
        self.assertEqual(ctl.snapshot(address[8:]), before)
        self.assertTrue(lines[address]["dry_run"])
        self.assertEqual(lines[address]["messages_changed"], 1)
        lines, _, _ = self.fleet(self.list_file(address), "--min-size", "1000000", "--no-index")
        self.assertEqual(lines[address]["messages_changed"], 0)
        self.assertNotIn("index", lines[address])

    def test_users_are_those_of_the_server(self):
        self.write(self.config_file("servers.conf"),
                   "[localhost]\npassword_file = /nowhere/%password\nport = 1\n")
        lines, summary, _ = self.fleet(self.list_file("ann", "--help", "b n"), "--server",
                                       "localhost", status=1)
        self.assertEqual(set(lines), {"ann", "--help", "b n"})
        self.assertEqual(summary["failed"], 3)
        for name, line in lines.items():
            self.assertEqual(line["errors"][0]["what"], f"{name} on localhost")

    def test_usage_errors_are_found_before_anything_is_done(self):
        address, = self.make_stores(("one",))
        path = self.list_file(address)
        for arguments in (("--level", "none"), ("--max-time", "soon"), ("--maildir", self.mail),
                          ("--profile", "x"), ("--jobs", "0"), ("--jobs", "x"), ("--service",),
                          ("--server", "host", "--alias", "ann")):
            done = self.ctl("compress", "--users-from", path, *arguments, status=2)
            self.assertNotIn('"mailbox"', done.stdout)
        self.ctl("compress", "--jobs", "2", status=2)

    def test_help_does_not_show_how_the_program_calls_itself(self):
        self.assertNotIn("part-of", self.ctl("compress", "--help").stdout)


class ExitCodes(FleetCase):
    def test_one_that_fails_harms_no_other(self):
        addresses = self.make_stores(("one", "two"))
        lines, summary, done = self.fleet(
            self.list_file(addresses[0], "maildir:/nowhere", addresses[1]), status=3)
        self.assertEqual([lines[one]["outcome"] for one in addresses], ["done", "done"])
        failed = lines["maildir:/nowhere"]
        self.assertEqual((failed["outcome"], failed["exit"]), ("failed", 1))
        self.assertIn("/nowhere", failed["errors"][0]["message"])
        self.assertEqual((summary["done"], summary["failed"]), (2, 1))
        self.assertIn("trevixctl: maildir:/nowhere: ", done.stderr)

    def test_nothing_but_failures(self):
        _, summary, _ = self.fleet(self.list_file("maildir:/nowhere", "maildir:/there"), status=1)
        self.assertEqual(summary["failed"], 2)

    def test_mailboxes_that_another_run_holds(self):
        addresses = self.make_stores(("one", "two"))
        self.hold(addresses[0])
        lines, summary, _ = self.fleet(self.list_file(addresses[0]), status=75)
        self.assertEqual(lines[addresses[0]]["outcome"], "busy")
        self.assertEqual(summary["busy"], 1)
        lines, summary, _ = self.fleet(self.list_file(*addresses), status=75)
        self.assertEqual((summary["busy"], summary["done"]), (1, 1))


class Ends(FleetCase):
    def wait_for_children(self, run, count):
        """Waits until so many runs have begun: each is stopped at once, so that none is over. Before a
        child is the program its parent waits for it."""
        found = []
        while len(found) < count:
            self.assertIsNone(run.poll())
            for child in children_of(run.pid):
                if child not in found and is_part(child):
                    os.kill(child, signal.SIGSTOP)
                    found.append(child)
        return found

    def test_ctrl_c_ends_all_runs_cleanly(self):
        addresses = self.make_stores([f"box{number}" for number in range(4)], messages=40)
        before = {address: ctl.attachments_of(address[8:]) for address in addresses}
        run = self.start_fleet(self.list_file(*addresses), "--jobs", "2")
        children = self.wait_for_children(run, 2)
        # As a terminal does it: to all of the group.
        os.killpg(run.pid, signal.SIGINT)
        os.killpg(run.pid, signal.SIGCONT)
        out, err = run.communicate(timeout=ctl.SECONDS)

        self.assertEqual(run.returncode, 130, err)
        self.assertFalse([child for child in children if is_running(child)])
        events = [json.loads(line) for line in out.splitlines()]
        self.assertEqual(events[-1]["exit"], 130)
        self.assertEqual(events[-1]["not_started"], 2)
        self.assertEqual(events[-1]["failed"], 0)
        for address in addresses:
            self.assertEqual(ctl.attachments_of(address[8:]), before[address])
        lines, _, _ = self.fleet(self.list_file(*addresses))
        self.assertEqual({line["outcome"] for line in lines.values()}, {"done"})

    def test_sigterm_from_two_sides_is_one_end(self):
        address, = self.make_stores(("one",), messages=40)
        run = self.start_fleet(self.list_file(address))
        child, = self.wait_for_children(run, 1)
        os.killpg(run.pid, signal.SIGTERM)
        os.killpg(run.pid, signal.SIGCONT)
        out, err = run.communicate(timeout=ctl.SECONDS)
        self.assertEqual(run.returncode, 130, err)
        self.assertFalse(is_running(child))
        self.assertEqual(json.loads(out.splitlines()[0])["outcome"], "stopped")

    def test_a_killed_parent_leaves_no_run_behind(self):
        addresses = self.make_stores(("one", "two"), messages=40)
        before = {address: ctl.attachments_of(address[8:]) for address in addresses}
        run = self.start_fleet(self.list_file(*addresses), "--jobs", "2")
        children = self.wait_for_children(run, 2)
        ends = [os.pidfd_open(child) for child in children]
        run.kill()
        run.wait()
        for child in children:
            os.kill(child, signal.SIGCONT)
        for end in ends:
            # Readable when the process has ended.
            self.assertTrue(select.select([end], [], [], ctl.SECONDS)[0])
            os.close(end)
        for address in addresses:
            self.assertEqual(ctl.attachments_of(address[8:]), before[address])
        lines, _, _ = self.fleet(self.list_file(*addresses))
        self.assertEqual({line["outcome"] for line in lines.values()}, {"done"})

    def test_a_killed_run_is_a_failure_of_its_mailbox(self):
        addresses = self.make_stores(("one", "two"), messages=40)
        run = self.start_fleet(self.list_file(*addresses))
        child, = self.wait_for_children(run, 1)
        os.kill(child, signal.SIGKILL)
        out, err = run.communicate(timeout=ctl.SECONDS)
        self.assertEqual(run.returncode, 3, err)
        lines = {event["mailbox"]: event for event in map(json.loads, out.splitlines()[:-1])}
        self.assertEqual(lines[addresses[0]]["outcome"], "failed")
        self.assertEqual(lines[addresses[0]]["errors"][0]["message"], "ended by signal 9")
        self.assertEqual(lines[addresses[1]]["outcome"], "done")

    def test_the_time_is_up(self):
        addresses = self.make_stores([f"box{number}" for number in range(3)], messages=4)
        run = self.start_fleet(self.list_file(*addresses), "--max-time", "1s")
        child, = self.wait_for_children(run, 1)
        # The run waits in its beginning until the time is up; the signal to end comes from there.
        end = os.pidfd_open(child)
        while not self.has_pending_signal(child, signal.SIGTERM):
            self.assertIsNone(run.poll())
        os.kill(child, signal.SIGCONT)
        self.assertTrue(select.select([end], [], [], ctl.SECONDS)[0])
        os.close(end)
        out, err = run.communicate(timeout=ctl.SECONDS)
        self.assertEqual(run.returncode, 124, err)
        events = [json.loads(line) for line in out.splitlines()]
        self.assertEqual(events[0]["outcome"], "stopped")
        self.assertEqual((events[-1]["exit"], events[-1]["not_started"]), (124, 2))

    @staticmethod
    def has_pending_signal(process, number):
        with open(f"/proc/{process}/status", encoding="ascii") as file:
            for line in file:
                if line.startswith(("SigPnd:", "ShdPnd:")) and \
                        int(line.split()[1], 16) >> (number - 1) & 1:
                    return True
        return False


class MaxTime(ctl.Case):
    def test_a_run_ends_at_the_next_message_and_keeps_what_it_did(self):
        self.make_store(messages=120, size=3000)
        before = ctl.attachments_of(self.mail)
        run = self.start_ctl("compress", "--maildir", self.mail, "--max-time", "1s")
        # Stopped in its first folder, until its time is up for sure.
        with self.assertRaises(subprocess.TimeoutExpired):
            run.wait(1.1)
        run.send_signal(signal.SIGCONT)
        out, err = run.communicate(timeout=ctl.SECONDS)

        self.assertEqual(run.returncode, 124, err)
        self.assertEqual(json.loads(out.splitlines()[-1])["exit"], 124)
        self.assertIn("the time is up", err)
        self.assertEqual(ctl.attachments_of(self.mail), before)
        self.assertEqual(os.listdir(os.path.join(self.scratch, "tmp", f"trevix-{os.geteuid()}",
                                                 "ZipTemp")), ["trevix.log"])
        self.compress()
        self.assertEqual(ctl.attachments_of(self.mail), before)

    def test_a_run_that_is_quick_enough_is_done(self):
        self.make_store()
        for time in ("1h", "90", "1h30m", "1d"):
            self.compress("--max-time", time)

    def test_refuses_what_is_no_time(self):
        for time in ("", "0", "1x", "-1", "h", "1h5", "9999999999", "1.5h"):
            done = self.ctl("compress", "--maildir", self.mail, f"--max-time={time}", status=2)
            self.assertIn("--max-time", done.stderr)


if __name__ == "__main__":
    ctl.main()
