#!/usr/bin/env python3
"""Real IMAP servers for tests: Dovecot and Cyrus, on the loopback interface, in a private directory.

As a module:

    with servers.Dovecot(users={"ann": "secret"}) as server:
        client = server.client("ann")          # Python's imaplib, logged in

As a program, for tests in other languages: it starts a server, prints one line of JSON that says
where it is, and stops it when its standard input ends.

    servers.py dovecot --user ann=secret --quota-kb 1000

A server that is not installed makes Missing; the program then prints {"missing": "why"}.
Each server trusts a master user, who logs in for everybody: SASL's authorisation identity with
both, and "user*master" as a name with Dovecot.
"""

import argparse
import contextlib
import grp
import imaplib
import json
import os
import pathlib
import pwd
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time

START_SECONDS = 60
USERS = {"ann": "ann's password", "ben": "ben's password"}
MASTER = "trevix-master"
MASTER_PASSWORD = "master's password"
CYRUS = pathlib.Path(os.environ.get("TREVIX_TEST_CYRUS", "/usr/local/lib/trevix-tests/cyrus"))


class Missing(Exception):
    """The server, or what it needs, is not installed."""


def free_ports(count):
    """Ports that nobody uses now."""
    with contextlib.ExitStack() as stack:
        sockets = [stack.enter_context(socket.socket()) for _ in range(count)]
        for one in sockets:
            one.bind(("127.0.0.1", 0))
        return [one.getsockname()[1] for one in sockets]


def ordinary_user():
    """Who owns the mail: this user, or somebody ordinary where this is root."""
    if os.geteuid() != 0:
        entry = pwd.getpwuid(os.geteuid())
    else:
        entry = pwd.getpwnam("mail")
    return entry.pw_name, grp.getgrgid(entry.pw_gid).gr_name, entry.pw_uid, entry.pw_gid


def run(*command, **options):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{command}: exit {done.returncode}\n{done.stdout}")


def make_certificates(directory):
    """An authority of our own, and a certificate of the server that is good for this machine."""
    if shutil.which("openssl") is None:
        raise Missing("openssl is not installed")
    key = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "30")
    run("openssl", "req", "-x509", *key, "-subj", "/CN=Test authority", "-keyout", "ca.key", "-out",
        "ca.pem", "-addext", "keyUsage=critical,keyCertSign,cRLSign", cwd=directory)
    run("openssl", "req", *key[:5], "-subj", "/CN=localhost", "-keyout", "server.key", "-out",
        "server.csr", cwd=directory)
    (directory / "server.ext").write_text(
        "subjectAltName=DNS:localhost,IP:127.0.0.1\nbasicConstraints=CA:FALSE\n"
        "keyUsage=digitalSignature\nextendedKeyUsage=serverAuth\n")
    run("openssl", "x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
        "-CAcreateserial", "-days", "30", "-extfile", "server.ext", "-out", "server.pem",
        cwd=directory)


class Server:
    """What both servers share. The directory is removed with the server."""

    name = ""

    def __init__(self, users=None, separator="/", quota_kb=0):
        self.users = dict(USERS if users is None else users)
        self.separator = separator
        self.quota_kb = quota_kb
        self.host = "127.0.0.1"
        self.process = None
        self.directory = None

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        """Starts it; when somebody took a port in between, once more with others."""
        self.check_installed()
        # Names of sockets must be short.
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="trevix-imap-", dir="/tmp"))
        try:
            self.directory.chmod(0o755)
            make_certificates(self.directory)
            self.ca_file = self.directory / "ca.pem"
            for attempt in (1, 2, 3):
                self.port, self.tls_port = free_ports(2)
                try:
                    self.launch()
                    self.wait_until_ready()
                    return
                except RuntimeError:
                    self.end_process()
                    if attempt == 3:
                        raise
        except BaseException:
            self.stop()
            raise

    def wait_until_ready(self):
        """Until both ports greet; an answer is waited for, not a time."""
        deadline = time.monotonic() + START_SECONDS
        for port in (self.port, self.tls_port):
            while True:
                if self.process.poll() is not None:
                    raise RuntimeError(f"{self.name} ended:\n{self.log()}")
                try:
                    with socket.create_connection((self.host, port), timeout=START_SECONDS) as one:
                        if port == self.tls_port or one.recv(1):
                            break
                except OSError:
                    pass
                if time.monotonic() > deadline:
                    raise RuntimeError(f"{self.name} does not answer:\n{self.log()}")
                time.sleep(0.02)

    def stop(self):
        self.end_process()
        if self.directory is not None:
            shutil.rmtree(self.directory, ignore_errors=True)
            self.directory = None

    def end_process(self):
        """All processes at once: nothing of theirs is kept, and an orderly end takes Dovecot seconds.
        The server leads a group of its own, and is not waited for before the group is gone."""
        if self.process is None:
            return
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        self.process = None

    def log(self):
        path = self.directory / "server.log"
        return path.read_text(errors="replace") if path.exists() else ""

    def tls_context(self):
        return ssl.create_default_context(cafile=str(self.ca_file))

    def client(self, user, password=None, timeout=60):
        """Python's own client, logged in; an independent view of what is on the server."""
        client = imaplib.IMAP4_SSL(self.host, self.tls_port, ssl_context=self.tls_context(),
                                   timeout=timeout)
        client.login(user, self.users[user] if password is None else password)
        return client

    def master_client(self, user):
        """Logged in as the master user, for `user`."""
        client = imaplib.IMAP4_SSL(self.host, self.tls_port, ssl_context=self.tls_context(),
                                   timeout=60)
        words = "\0".join((user, MASTER, MASTER_PASSWORD)).encode()
        client.authenticate("PLAIN", lambda _: words)
        return client

    def settings(self, directory, master=False, **more):
        """Writes servers.conf, and the passwords that it names, to `directory`."""
        directory = pathlib.Path(directory)
        directory.mkdir(parents=True, exist_ok=True)
        lines = [f"[{self.host}]", f"ca_file = {self.ca_file}", f"port = {self.tls_port}"]
        lines += [f"{entry} = {value}" for entry, value in more.items()]
        if master:
            self.write_private(directory / "master.password", MASTER_PASSWORD + "\n")
            lines += [f"login = {MASTER}", f"password_file = {directory / 'master.password'}"]
        for user, password in {} if master else self.users.items():
            self.write_private(directory / f"{user}.password", password + "\n")
            lines += [f"[{user}@{self.host}]",
                      f"password_file = {directory / (user + '.password')}"]
        self.write_private(directory / "servers.conf", "\n".join(lines) + "\n")

    @staticmethod
    def write_private(path, text):
        path.write_text(text)
        path.chmod(0o600)

    def address(self, user):
        return f"imaps://{user}@{self.host}:{self.tls_port}"

    def description(self):
        """For programs in other languages."""
        return {"server": self.name, "host": self.host, "port": self.port,
                "tls_port": self.tls_port, "ca_file": str(self.ca_file), "users": self.users,
                "master": MASTER, "master_password": MASTER_PASSWORD,
                "separator": self.separator, "directory": str(self.directory),
                "maildirs": {user: str(self.maildir(user)) for user in self.users
                             if self.maildir(user) is not None}}

    def maildir(self, _user):
        return None


class Dovecot(Server):
    """Dovecot 2.3. Each user has a Maildir++ below the server's directory."""

    name = "dovecot"
    program = "/usr/sbin/dovecot"

    def check_installed(self):
        if not os.access(self.program, os.X_OK):
            raise Missing("Dovecot is not installed (dovecot-imapd)")

    def maildir(self, user):
        return self.directory / "mail" / user / "Maildir"

    def launch(self):
        user, group, uid, gid = ordinary_user()
        mail = self.directory / "mail"
        for name in self.users:
            (mail / name).mkdir(parents=True, exist_ok=True, mode=0o700)
        if os.geteuid() == 0:
            run("chown", "-R", f"{uid}:{gid}", str(mail))
        self.write_passwords("users", self.users)
        self.write_passwords("masters", {MASTER: MASTER_PASSWORD})
        self.configuration = self.directory / "dovecot.conf"
        self.configuration.write_text(self.configuration_text(user, group))
        with open(self.directory / "output", "wb") as output:
            self.process = subprocess.Popen([self.program, "-F", "-c", str(self.configuration)],
                                            stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                            start_new_session=True)

    def write_passwords(self, name, users):
        path = self.directory / name
        path.write_text("".join(f"{user}:{{PLAIN}}{password}\n"
                                for user, password in users.items()))
        path.chmod(0o644)  # its reader has a user of its own; the test's passwords are no secret

    def configuration_text(self, user, group):
        internal = ""
        if os.geteuid() != 0:
            # What this user cannot become, and rooms that he cannot make.
            internal = (f"default_internal_user = {user}\ndefault_internal_group = {group}\n"
                        f"default_login_user = {user}\n"
                        "service anvil {\n  chroot =\n}\nservice imap-login {\n  chroot =\n}\n"
                        "service stats {\n  chroot =\n}\n")
        quota = ""
        if self.quota_kb:
            quota = ("mail_plugins = $mail_plugins quota\n"
                     "protocol imap {\n  mail_plugins = $mail_plugins imap_quota\n}\n"
                     "plugin {\n  quota = count:User quota\n  quota_vsizes = yes\n"
                     f"  quota_grace = 0%%\n  quota_rule = *:storage={self.quota_kb}K\n}}\n")
        return f"""
base_dir = {self.directory}/run
state_dir = {self.directory}/state
instance_name = trevix-test-{self.tls_port}
log_path = {self.directory}/server.log
protocols = imap
listen = {self.host}
ssl = yes
ssl_cert = <{self.directory}/server.pem
ssl_key = <{self.directory}/server.key
ssl_min_protocol = TLSv1.2
auth_mechanisms = plain login
auth_failure_delay = 0
auth_master_user_separator = *
passdb {{
  driver = passwd-file
  args = {self.directory}/masters
  master = yes
}}
passdb {{
  driver = passwd-file
  args = {self.directory}/users
}}
userdb {{
  driver = static
  args = uid={user} gid={group} home={self.directory}/mail/%u
}}
first_valid_uid = 1
first_valid_gid = 0
mail_location = maildir:~/Maildir
mail_fsync = never
mail_max_userip_connections = 100
namespace inbox {{
  inbox = yes
  separator = {self.separator}
  mailbox Sent {{
    special_use = \\Sent
    auto = create
  }}
  mailbox Trash {{
    special_use = \\Trash
    auto = no
  }}
}}
service imap-login {{
  inet_listener imap {{
    port = {self.port}
  }}
  inet_listener imaps {{
    port = {self.tls_port}
    ssl = yes
  }}
}}
{internal}{quota}"""

    def doveadm(self, *arguments):
        """The output of the server's own administration program."""
        done = subprocess.run(["doveadm", "-c", str(self.configuration), *arguments],
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, errors="replace", check=False)
        if done.returncode != 0:
            raise RuntimeError(f"doveadm {arguments}: exit {done.returncode}\n{done.stderr}")
        return done.stdout


class PasswordDaemon(threading.Thread):
    """Answers Cyrus whether a password is right, as saslauthd does: four strings come, each behind
    its length, and one goes back."""

    def __init__(self, path, users):
        super().__init__(daemon=True)
        self.users = users
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.bind(str(path))
        os.chmod(path, 0o777)
        self.socket.listen(64)

    def run(self):
        while True:
            try:
                connection, _ = self.socket.accept()
            except OSError:
                return
            with connection, contextlib.suppress(OSError, ValueError):
                with connection.makefile("rb") as stream:
                    words = [stream.read(int.from_bytes(stream.read(2), "big")).decode()
                             for _ in range(4)]
                known = self.users.get(words[0]) == words[1]
                answer = b"OK" if known else b"NO"
                connection.sendall(len(answer).to_bytes(2, "big") + answer)

    def end(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.socket.close()


class Cyrus(Server):
    """Cyrus 3.6. Its package cannot be installed beside Dovecot's, so scripts/setup unpacks it into
    a directory of its own."""

    name = "cyrus"
    password_daemon = None

    def __init__(self, users=None, separator="/", quota_kb=0):
        super().__init__(users, separator, quota_kb)
        installed = pathlib.Path("/usr/lib/cyrus/bin")
        self.programs = installed if installed.exists() else CYRUS / "usr/lib/cyrus/bin"
        self.libraries = CYRUS / "usr/lib/x86_64-linux-gnu"

    def check_installed(self):
        if not os.access(self.programs / "master", os.X_OK):
            raise Missing(f"Cyrus is not installed (scripts/setup unpacks it into {CYRUS})")

    def environment(self):
        libraries = [str(path) for path in sorted((CYRUS / "usr/lib").glob("*-linux-gnu"))]
        return {**os.environ, "LD_LIBRARY_PATH": ":".join(libraries)}

    def launch(self):
        user, group, uid, gid = ordinary_user()
        for name in ("conf", "spool", "conf/socket", "conf/proc", "conf/log"):
            (self.directory / name).mkdir(exist_ok=True)
        self.password_daemon = PasswordDaemon(
            self.directory / "mux", {**self.users, MASTER: MASTER_PASSWORD, "cyrus": "cyrus"})
        self.password_daemon.start()
        self.configuration = self.directory / "imapd.conf"
        self.configuration.write_text(self.configuration_text(user, group))
        services = self.directory / "cyrus.conf"
        services.write_text(f"""
START {{
  recover cmd="{self.programs}/ctl_cyrusdb -C {self.configuration} -r"
}}
SERVICES {{
  imap cmd="{self.programs}/imapd -C {self.configuration}" listen="{self.host}:{self.port}" prefork=0
  imaps cmd="{self.programs}/imapd -s -C {self.configuration}" listen="{self.host}:{self.tls_port}" prefork=0
}}
EVENTS {{
}}
""")
        if os.geteuid() == 0:
            run("chown", "-R", f"{uid}:{gid}", str(self.directory))
        with open(self.directory / "server.log", "wb") as output:
            self.process = subprocess.Popen(
                [str(self.programs / "master"), "-D", "-C", str(self.configuration), "-M",
                 str(services), "-p", str(self.directory / "master.pid")],
                stdin=subprocess.DEVNULL, stdout=output, stderr=output, env=self.environment(),
                start_new_session=True)

    def configuration_text(self, user, group):
        return f"""
configdirectory: {self.directory}/conf
partition-default: {self.directory}/spool
defaultpartition: default
cyrus_user: {user}
cyrus_group: {group}
admins: cyrus
proxyservers: {MASTER}
servername: localhost
unixhierarchysep: {"yes" if self.separator == "/" else "no"}
altnamespace: yes
allowplaintext: yes
autocreate_quota: {self.quota_kb}
autocreate_inbox_folders: Sent
sasl_pwcheck_method: saslauthd
sasl_saslauthd_path: {self.directory}/mux
sasl_mech_list: PLAIN LOGIN
failedloginpause: 0
tls_server_cert: {self.directory}/server.pem
tls_server_key: {self.directory}/server.key
tls_versions: tls1_2 tls1_3
idlesocket: {self.directory}/conf/socket/idle
notifysocket: {self.directory}/conf/socket/notify
lmtpsocket: {self.directory}/conf/socket/lmtp
syslog_prefix: cyrus-test
conversations: no
skiplist_unsafe: yes
"""

    def end_process(self):
        super().end_process()
        if self.password_daemon is not None:
            self.password_daemon.end()
            self.password_daemon = None
            (self.directory / "mux").unlink(missing_ok=True)


SERVERS = {"dovecot": Dovecot, "cyrus": Cyrus}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    parser.add_argument("server", choices=sorted(SERVERS))
    parser.add_argument("--user", action="append", metavar="NAME=PASSWORD")
    parser.add_argument("--separator", default="/")
    parser.add_argument("--quota-kb", type=int, default=0)
    options = parser.parse_args()
    users = dict(user.split("=", 1) for user in options.user) if options.user else None
    try:
        with SERVERS[options.server](users, options.separator, options.quota_kb) as server:
            print(json.dumps(server.description()), flush=True)
            sys.stdin.buffer.read()
    except Missing as missing:
        print(json.dumps({"missing": str(missing)}), flush=True)


if __name__ == "__main__":
    main()
