#!/usr/bin/env python3
"""Whole runs of the program on real servers, judged by Python's own IMAP client."""

import json
import os
import shutil
import signal
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
for folder in ("cli", "support", "corpus"):
    sys.path.insert(0, os.path.join(HERE, "..", folder))

import ctl
import delay_proxy
import drive
import imap_reader
import mail_reader
import servers
import test_corpus

DATE = '"17-Jul-2006 02:44:25 -0700"'


class ServerCase(ctl.Case):
    """A server for the class, and for each test a user of its own and a home of the program's."""

    kind = servers.Dovecot
    options = {}
    users_made = 0

    @classmethod
    def setUpClass(cls):
        cls.parser = mail_reader.Parser()
        cls.server = cls.kind({f"u{number}": f"password of {number}" for number in range(40)},
                              **cls.options)
        try:
            cls.server.start()
        except servers.Missing as missing:
            drive.skip(str(missing))

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()

    def setUp(self):
        super().setUp()
        self.user_name = self.new_user()
        self.address = self.server.address(self.user_name)
        self.server.settings(self.config_folder())

    def new_user(self):
        type(self).users_made += 1
        return f"u{self.users_made}"

    def config_folder(self):
        return os.path.dirname(self.config_file("servers.conf"))

    def environment(self, **extra):
        state = os.path.join(self.scratch, "home", ".state")
        return super().environment(XDG_STATE_HOME=state, **extra)

    def client(self, user=None):
        client = self.server.client(user or self.user_name)
        self.addCleanup(client.logout)
        return client

    def fill(self, messages=6, user=None):
        client = self.client(user)
        client.create("Archive")
        for number in range(messages):
            done, answer = client.append(
                ("INBOX", "Archive")[number % 2], "(\\Seen $Mine)", DATE,
                ctl.make_message(number, [(f"a{number}.txt", ctl.text_of(f"a{number}", 20000)),
                                          (f"b{number}.doc", ctl.text_of(f"b{number}", 20000))]))
            self.assertEqual(done, "OK", answer)

    def snapshot(self, user=None):
        return imap_reader.snapshot(self.client(user), self.parser)

    def run_on(self, command, *arguments, status=0):
        return self.ctl(command, "--profile", self.address, *arguments, status=status)

    def rows(self):
        """The rows of the index without their numbers, which say when each was indexed."""
        lines = self.run_on("find", "--csv").stdout.splitlines()
        return sorted(line.split(",", 1)[1] for line in lines)

    def judge(self, before, mode="any", **more):
        self.assertEqual(mail_reader.compare(before, self.snapshot(), mode, **more), [])


class Runs:
    """What holds on each server."""

    def test_compresses_in_place_and_finds_again(self):
        self.fill()
        before = self.snapshot()

        dry = self.run_on("compress", "-n")
        self.assertIn("6 messages would change, 12 attachments zipped", dry.stdout)
        self.judge(before, "unchanged")
        done = self.run_on("compress", "--rollup")
        self.assertIn("6 messages changed, 12 attachments zipped", done.stdout)
        self.judge(before, "rollup", complete=True)

        self.assertIn("Total", self.run_on("report").stdout)
        self.assertIn("free", self.run_on("status").stdout)
        rows = [json.loads(line) for line in
                self.run_on("find", "--name", "a*", "--json").stdout.splitlines()[:-1]]
        self.assertEqual(len(rows), 6)
        into = os.path.join(self.scratch, "into")
        os.mkdir(into)
        self.run_on("extract", "--name", "a3.txt", "--into", into)
        self.assertEqual(self.read(os.path.join(into, "a3.txt")), ctl.text_of("a3", 20000))

    def test_a_second_run_writes_to_no_message(self):
        self.fill()
        self.run_on("compress", "--separate")
        before = self.snapshot()
        self.assertIn("0 messages changed", self.run_on("compress", "--separate").stdout)
        self.judge(before, "unchanged")

    def test_an_update_gives_the_index_that_a_new_one_is(self):
        self.fill()
        self.run_on("compress")
        self.client().append("INBOX", "()", DATE, ctl.make_message(77, [("new.txt", "x" * 9000)]))
        self.run_on("compress")
        updated = self.rows()
        self.run_on("index", "--rebuild")
        self.assertEqual(updated, self.rows())
        self.assertIn("new.txt", "".join(updated))

    def test_server_and_alias_mean_the_same_mailbox(self):
        self.fill(2)
        self.run_on("compress")
        done = self.ctl("compress", "--server", f"{self.server.host}:{self.server.tls_port}",
                        "--alias", self.user_name)
        self.assertIn("0 messages changed", done.stdout)

    def test_a_master_user_logs_in_for_others(self):
        self.fill(2)
        self.server.settings(self.config_folder(), master=True)
        self.assertIn("2 messages changed", self.run_on("compress").stdout)

    def test_passwords_come_from_a_command(self):
        self.fill(2)
        password = self.server.users[self.user_name]
        self.server.settings(self.config_folder())
        path = os.path.join(self.config_folder(), "servers.conf")
        text = self.read(path).replace(
            f"password_file = {self.config_folder()}/{self.user_name}.password",
            f"password_command = printf '%%s\\n' '{password}'")
        self.write(path, text)
        self.assertIn("2 messages changed", self.run_on("compress").stdout)

    def test_wrong_password(self):
        path = os.path.join(self.config_folder(), f"{self.user_name}.password")
        self.write(path, "geheim\n")
        done = self.run_on("folders", status=1)
        self.assertIn(self.server.host, done.stderr)
        self.assertNotIn("geheim", done.stderr)

    def test_nobody_vouches_for_the_server(self):
        path = os.path.join(self.config_folder(), "servers.conf")
        self.write(path, self.read(path).replace("ca_file", "# ca_file"))
        done = self.run_on("folders", status=1)
        self.assertIn("certificate", done.stderr)

    def test_starttls(self):
        self.fill(2)
        address = f"imap://{self.user_name}@{self.server.host}:{self.server.port}"
        done = self.ctl("compress", "--profile", address)
        self.assertIn("2 messages changed", done.stdout)

    def test_the_lock_holds_between_machines(self):
        self.fill()
        run = self.start_ctl("compress", "--profile", self.address)
        # Another machine: nothing of the first one's home.
        other = os.path.join(self.scratch, "other")
        shutil.copytree(self.config_folder(), os.path.join(other, "trevix"))
        done = self.run_ctl("compress", "--profile", self.address, XDG_CONFIG_HOME=other,
                            XDG_CACHE_HOME=os.path.join(other, "cache"), HOME=other)
        self.assertEqual(done.returncode, 75, done.stdout + done.stderr)
        run.send_signal(signal.SIGCONT)
        out, err = run.communicate(timeout=ctl.SECONDS)
        self.assertEqual(run.returncode, 0, out + err)

    def test_many_mailboxes(self):
        users = [self.user_name] + [self.new_user() for _ in range(3)]
        before = {}
        for user in users:
            self.fill(2, user)
            before[user] = self.snapshot(user)
        path = os.path.join(self.scratch, "users")
        self.write(path, "\n".join(users + ["nobody-of-that-name"]) + "\n")

        done = self.ctl("compress", "--server", f"{self.server.host}:{self.server.tls_port}",
                        "--users-from", path, "--jobs", "3", status=3)

        events = self.events(done)
        lines = {event["mailbox"]: event for event in events[:-1]}
        self.assertEqual((events[-1]["done"], events[-1]["failed"]), (4, 1))
        for user in users:
            self.assertEqual(lines[user]["messages_changed"], 2)
            self.assertEqual(mail_reader.compare(before[user], self.snapshot(user)), [])

    def test_a_profile_mixes_servers_and_directories(self):
        self.fill(2)
        before = self.snapshot()
        self.make_store(messages=2)
        self.ctl("profile", "add", "both", "--maildir", self.mail, "--store", self.address)
        done = self.ctl("compress", "--profile", "both")
        self.assertIn("4 messages changed", done.stdout)
        self.judge(before)

    def test_connections_that_are_cut_lose_and_double_nothing(self):
        config = os.path.join(self.config_folder(), "servers.conf")
        with delay_proxy.Proxy(self.server.host, self.server.tls_port) as proxy:
            self.write(config, self.read(config).replace(f"port = {self.server.tls_port}",
                                                         f"port = {proxy.port}"))
            for cut in range(3000, 24000, 3500):
                self.user_name = self.new_user()
                self.address = f"imaps://{self.user_name}@{self.server.host}"
                self.fill(3)
                before = self.snapshot()
                proxy.cut_after = cut
                self.run_ctl("compress", "--profile", self.address)
                self.assertEqual(self.missing_now(before), set(), cut)
                # What was under way is finished or taken back when the mailbox is opened, also
                # while the lock of the run that was cut is still fresh.
                proxy.cut_after = None
                done = self.run_ctl("compress", "--profile", self.address)
                self.assertIn(done.returncode, (0, 75), done.stdout + done.stderr)
                self.judge(before)

    def missing_now(self, before):
        """Between two runs a message may be there twice, but nothing may be missing."""
        found = set()
        for message in self.snapshot()["messages"]:
            for leaf in message["leaves"]:
                found.add(leaf["sha"])
                if leaf["zip"] is not None:
                    found |= {member["sha"] for member in leaf["zip"]["members"]}
        return {leaf["sha"] for message in before["messages"] for leaf in message["leaves"]
                if leaf["name"]} - found


class OnDovecot(Runs, ServerCase):
    kind = servers.Dovecot


class OnCyrus(Runs, ServerCase):
    kind = servers.Cyrus


class Quota(ServerCase):
    options = {"quota_kb": 200}

    def test_a_full_mailbox_keeps_its_messages(self):
        self.fill(3)
        client = self.client()
        while client.append("INBOX", "()", DATE, b"Subject: more\r\n\r\n" + b"x" * 20000)[0] == "OK":
            pass
        before = self.snapshot()
        self.run_ctl("compress", "--profile", self.address)
        self.judge(before)


class Corpus(ServerCase):
    """Real mail, in a Maildir that Dovecot serves."""

    def setUp(self):
        super().setUp()
        if not os.path.isdir(os.path.join(test_corpus.SHARED, "corpus", "mail")):
            drive.skip(f"no corpus of messages in {test_corpus.SHARED}")
        self.maildir = str(self.server.maildir(self.user_name))
        test_corpus.deliver_all(self.maildir)
        if os.geteuid() == 0:
            _, _, uid, gid = servers.ordinary_user()
            for directory, names, files in os.walk(self.maildir):
                for name in names + files + ["."]:
                    os.chown(os.path.join(directory, name), uid, gid)

    def compress_and_judge(self, mode):
        before = self.snapshot()
        self.assertGreater(len(before["messages"]), 100)
        done = self.run_ctl("compress", "--profile", self.address, "--" + mode)
        self.assertIn(done.returncode, (0, 3), done.stdout + done.stderr)
        after = self.snapshot()
        self.assertEqual(mail_reader.compare(before, after, mode), [])
        archives = sum(leaf["zip"] is not None for message in after["messages"]
                       for leaf in message["leaves"])
        self.assertGreater(archives, 50)
        again = self.run_ctl("compress", "--profile", self.address, "--" + mode)
        self.assertIn(again.returncode, (0, 3), again.stdout + again.stderr)
        self.judge(after, "unchanged")
        updated = self.rows()
        self.run_ctl("index", "--rebuild", "--profile", self.address)
        self.assertEqual(updated, self.rows())

    def test_real_mail_survives_separate_compression(self):
        self.compress_and_judge("separate")

    def test_real_mail_survives_a_rollup(self):
        self.compress_and_judge("rollup")

    def test_the_server_has_no_complaint_of_a_run_on_its_maildir(self):
        before = self.snapshot()
        # All that the server keeps of messages is made: sizes, headers, structures.
        self.server.doveadm("fetch", "-u", self.user_name,
                            "uid size.physical size.virtual hdr.subject imap.bodystructure", "ALL")
        logged = len(self.server.log())
        done = self.run_ctl("compress", "--maildir", self.maildir)
        self.assertIn(done.returncode, (0, 3), done.stdout + done.stderr)

        after = self.snapshot()
        # Reads each message whole, and checks what it knows of it.
        self.server.doveadm("fetch", "-u", self.user_name,
                            "size.physical size.virtual text imap.bodystructure", "ALL")
        seen = self.server.doveadm("fetch", "-u", self.user_name, "uid", "ALL")
        self.assertEqual(len(before["messages"]), len(after["messages"]))
        self.assertEqual(seen.count("uid: "), len(after["messages"]))
        complaints = [line for line in self.server.log()[logged:].splitlines()
                      if ": Error: " in line or ": Warning: " in line or "Panic" in line]
        self.assertEqual(complaints, [])


if __name__ == "__main__":
    ctl.main()
