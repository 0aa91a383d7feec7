#!/usr/bin/env python3
"""The servers that other tests use are real ones, and do what those tests rely on."""

import imaplib
import json
import os
import socket
import ssl
import subprocess
import sys
import time
import unittest

import delay_proxy
import servers

HERE = os.path.dirname(os.path.abspath(__file__))
MESSAGE = b"Subject: one\r\n\r\ntext\r\n"


def skip(reason):
    if os.environ.get("TREVIX_REQUIRE_ALL") == "1":
        raise AssertionError(reason)
    raise unittest.SkipTest(reason)


class Promises:
    """What holds for each server."""

    kind = None

    @classmethod
    def setUpClass(cls):
        cls.server = cls.kind()
        try:
            cls.server.start()
        except servers.Missing as missing:
            skip(str(missing))

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()

    def test_keeps_flags_and_tells_the_new_uid(self):
        client = self.server.client("ann")
        client.create("Kept")
        done, answer = client.append("Kept", "(\\Seen $Mine)", '"17-Jul-1996 02:44:25 -0700"', MESSAGE)
        self.assertEqual(done, "OK")
        self.assertRegex(answer[0].decode(), r"\[APPENDUID \d+ 1\]")
        client.select("Kept")
        _, answer = client.uid("FETCH", "1", "(FLAGS INTERNALDATE RFC822.SIZE BODY.PEEK[])")
        head, body = answer[0]
        for word in (b"\\Seen", b"$Mine", b"17-Jul-1996", b"RFC822.SIZE %d" % len(MESSAGE)):
            self.assertIn(word, head)
        self.assertEqual(body, MESSAGE)
        client.logout()

    def test_offers_what_fast_updates_need(self):
        client = self.server.client("ann")
        offered = client.capability()[1][0].decode().split()
        for capability in ("UIDPLUS", "CONDSTORE", "QRESYNC", "LIST-STATUS", "SPECIAL-USE"):
            self.assertIn(capability, offered)
        client.logout()

    def test_lets_a_master_user_in_for_somebody(self):
        own = self.server.client("ben")
        own.create("Of-Ben")
        own.logout()
        client = self.server.master_client("ben")
        self.assertIn(b"Of-Ben", b" ".join(client.list()[1]))
        client.logout()

    def test_refuses_a_wrong_password(self):
        client = imaplib.IMAP4_SSL(self.server.host, self.server.tls_port,
                                   ssl_context=self.server.tls_context())
        with self.assertRaises(imaplib.IMAP4.error):
            client.login("ann", "wrong")
        client.shutdown()

    def test_has_a_certificate_that_only_our_authority_vouches_for(self):
        with socket.create_connection((self.server.host, self.server.tls_port)) as one:
            with self.assertRaises(ssl.SSLCertVerificationError):
                ssl.create_default_context().wrap_socket(one, server_hostname="127.0.0.1")

    def test_offers_starttls_on_its_other_port(self):
        client = imaplib.IMAP4(self.server.host, self.server.port)
        self.assertEqual(client.starttls(self.server.tls_context())[0], "OK")
        client.login("ann", self.server.users["ann"])
        client.logout()

    def test_listens_on_the_loopback_interface_only(self):
        for port in (self.server.port, self.server.tls_port):
            with open("/proc/net/tcp", encoding="ascii") as table:
                rows = [line.split() for line in table][1:]
            listening = {row[1].split(":")[0] for row in rows
                         if row[3] == "0A" and int(row[1].split(":")[1], 16) == port}
            self.assertEqual(listening, {"0100007F"})


class Dovecot(Promises, unittest.TestCase):
    kind = servers.Dovecot

    def test_keeps_mail_in_a_maildir(self):
        client = self.server.client("ann")
        client.append("INBOX", "()", None, MESSAGE)
        client.logout()
        maildir = self.server.maildir("ann")
        names = os.listdir(maildir / "cur") + os.listdir(maildir / "new")
        self.assertEqual(len(names), 1)
        self.assertEqual(self.server.doveadm("fetch", "-u", "ann", "uid", "mailbox", "INBOX"),
                         "uid: 1\n")


class Cyrus(Promises, unittest.TestCase):
    kind = servers.Cyrus


class Quota(unittest.TestCase):
    def test_is_enforced(self):
        try:
            with servers.Dovecot(quota_kb=10) as server:
                client = server.client("ann")
                done, answer = client.append("INBOX", "()", None, MESSAGE + b"x" * 20000 + b"\r\n")
                self.assertEqual(done, "NO")
                self.assertIn(b"OVERQUOTA", answer[0])
                client.logout()
        except servers.Missing as missing:
            skip(str(missing))


class Program(unittest.TestCase):
    def test_starts_a_server_and_stops_it_when_its_input_ends(self):
        program = subprocess.Popen(
            [sys.executable, os.path.join(HERE, "servers.py"), "dovecot", "--user", "cleo=x y"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        described = json.loads(program.stdout.readline())
        if "missing" in described:
            program.communicate()
            skip(described["missing"])
        with socket.create_connection((described["host"], described["port"])) as one:
            self.assertTrue(one.recv(4).startswith(b"* OK"))
        self.assertEqual(described["users"], {"cleo": "x y"})
        program.communicate()
        self.assertEqual(program.returncode, 0)
        self.assertFalse(os.path.exists(described["directory"]))
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection((described["host"], described["port"]))


class Echo:
    """A server that sends back what it gets."""

    def __enter__(self):
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.port = self.socket.getsockname()[1]
        self.process = os.fork()
        if self.process == 0:
            while True:
                one, _ = self.socket.accept()
                with one:
                    self.send_back(one)
        return self

    @staticmethod
    def send_back(one):
        try:
            while data := one.recv(65536):
                one.sendall(data)
        except OSError:
            pass  # cut, as some tests do; the next one is served all the same

    def __exit__(self, *_):
        self.socket.close()
        os.kill(self.process, 9)
        os.waitpid(self.process, 0)


class DelayProxy(unittest.TestCase):
    def test_makes_a_round_trip_take_twice_its_delay(self):
        with Echo() as echo, delay_proxy.Proxy("127.0.0.1", echo.port, delay_ms=40) as proxy:
            with socket.create_connection(("127.0.0.1", proxy.port)) as one:
                start = time.monotonic()
                one.sendall(b"x")
                self.assertEqual(one.recv(1), b"x")
                self.assertGreaterEqual(time.monotonic() - start, 0.08)

    def test_hands_everything_on_in_order(self):
        data = bytes(range(256)) * 8192
        with Echo() as echo, delay_proxy.Proxy("127.0.0.1", echo.port, delay_ms=5) as proxy:
            with socket.create_connection(("127.0.0.1", proxy.port)) as one:
                got = b""
                for at in range(0, len(data), 65536):
                    one.sendall(data[at:at + 65536])
                while len(got) < len(data):
                    got += one.recv(65536)
                self.assertEqual(got, data)

    def test_cuts_a_connection_after_so_many_bytes(self):
        with Echo() as echo:
            for side in ("client", "server"):
                with delay_proxy.Proxy("127.0.0.1", echo.port, 0, 5, side) as proxy:
                    with socket.create_connection(("127.0.0.1", proxy.port)) as one:
                        one.sendall(b"123")
                        got = one.recv(100)
                        one.sendall(b"456789")
                        try:
                            while more := one.recv(100):
                                got += more
                        except ConnectionResetError:
                            pass
                        self.assertEqual(b"12345"[:len(got)], got)
                        self.assertLessEqual(len(got), 5)


if __name__ == "__main__":
    unittest.main()
