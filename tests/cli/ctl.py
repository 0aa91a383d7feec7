"""Drives the built trevixctl in a scratch directory of its own, and looks at what it did there."""

import email
import email.message
import email.policy
import hashlib
import io
import json
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
import zipfile

TREVIXCTL = os.environ.get("TREVIXCTL", "")
NOBODY = 65534
SECONDS = 120


def text_of(name, size):
    """Text that shrinks when it is zipped, the same for the same name."""
    words = random.Random(name).choices(("mail ", "zip ", "folder ", "report ", "sum\n"), k=size // 4)
    return "".join(words)[:size]


def make_message(number, attachments):
    message = email.message.EmailMessage(policy=email.policy.SMTP)
    message["From"] = "Ann <ann@example.org>"
    message["To"] = "ben@example.org"
    message["Subject"] = f"Message {number}"
    message["Date"] = "Mon, 01 Oct 2007 10:00:00 +0000"
    message["Message-ID"] = f"<{number}@example.org>"
    message.set_content(f"Text of message {number}\n")
    for name, content in attachments:
        message.add_attachment(content.encode(), maintype="application", subtype="octet-stream",
                               filename=name)
    return message.as_bytes()


def make_folder(path):
    for part in ("cur", "new", "tmp"):
        os.makedirs(os.path.join(path, part), mode=0o700)


def deliver(folder, number, attachments):
    name = f"{1190000000 + number}.M{number}P1.host:2,S"
    path = os.path.join(folder, "cur", name)
    with open(path, "wb") as file:
        file.write(make_message(number, attachments))
    os.utime(path, (1190000000 + number, 1190000000 + number))


def attachments_of(maildir):
    """The decoded attachments of a store as sorted (name, digest); archives count as members."""
    found = []
    for directory, _, files in os.walk(maildir):
        if os.path.basename(directory) not in ("cur", "new"):
            continue
        for name in files:
            with open(os.path.join(directory, name), "rb") as file:
                message = email.message_from_binary_file(file, policy=email.policy.default)
            for part in message.iter_attachments():
                content = part.get_payload(decode=True)
                if not (part.get_filename() or "").endswith(".zip"):
                    found.append((part.get_filename(), hashlib.sha256(content).hexdigest()))
                    continue
                with zipfile.ZipFile(io.BytesIO(content)) as archive:
                    for member in archive.namelist():
                        found.append((member, hashlib.sha256(archive.read(member)).hexdigest()))
    return sorted(found)


def snapshot(*places):
    """Everything below the places: names, inodes, modes, times, sizes, contents."""
    found = {}
    for place in places:
        for directory, directories, files in os.walk(place):
            for name in directories + files + ["."]:
                path = os.path.normpath(os.path.join(directory, name))
                about = os.lstat(path)
                content = ""
                if os.path.isfile(path) and not os.path.islink(path):
                    with open(path, "rb") as file:
                        content = hashlib.sha256(file.read()).hexdigest()
                found[path] = (about.st_ino, about.st_mode, about.st_uid, about.st_nlink,
                               about.st_mtime_ns, about.st_size, content)
    return found


class Case(unittest.TestCase):
    """A scratch directory with a home, a temporary directory and a small store."""

    def setUp(self):
        if not TREVIXCTL:
            self.skipTest("TREVIXCTL does not name the program")
        self.scratch = tempfile.mkdtemp(prefix="trevix-cli-")
        self.addCleanup(shutil.rmtree, self.scratch, ignore_errors=True)
        for name in ("home", "tmp"):
            os.mkdir(os.path.join(self.scratch, name), mode=0o700)
        self.mail = os.path.join(self.scratch, "Mail")
        self.user = {}

    def make_store(self, messages=4, size=20000):
        """An Inbox, Archive, Archive/2019 and Work; every message with two text files."""
        make_folder(self.mail)
        folders = ["", ".Archive", ".Archive.2019", ".Work"]
        for folder in folders[1:]:
            make_folder(os.path.join(self.mail, folder))
        for number in range(messages):
            deliver(os.path.join(self.mail, folders[number % len(folders)]), number,
                    [(f"a{number}.txt", text_of(f"a{number}", size)),
                     (f"b{number}.doc", text_of(f"b{number}", size))])

    def environment(self, **extra):
        home = os.path.join(self.scratch, "home")
        return {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": home,
                "XDG_CONFIG_HOME": os.path.join(home, ".config"),
                "XDG_CACHE_HOME": os.path.join(home, ".cache"),
                "TMPDIR": os.path.join(self.scratch, "tmp"), "TZ": "UTC",
                "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", ""), **extra}

    def run_ctl(self, *arguments, **extra):
        return subprocess.run([TREVIXCTL, *arguments], env=self.environment(**extra), text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=SECONDS, check=False,
                              cwd=self.scratch, **self.user)

    def start_ctl(self, *arguments):
        """A run that is stopped (SIGSTOP) as soon as it has begun its first folder."""
        run = subprocess.Popen([TREVIXCTL, *arguments, "--json"], env=self.environment(),
                               text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, cwd=self.scratch)
        self.addCleanup(self.end, run)
        line = json.loads(run.stdout.readline())
        self.assertEqual(line["event"], "folder")
        run.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, run.pid, os.WSTOPPED | os.WNOWAIT)
        return run

    def end(self, run):
        if run.poll() is None:
            run.kill()
        run.communicate()

    def ctl(self, *arguments, status=0, **extra):
        done = self.run_ctl(*arguments, **extra)
        self.assertEqual(done.returncode, status, f"{arguments}\n{done.stdout}{done.stderr}")
        return done

    def compress(self, *arguments, status=0, **extra):
        return self.ctl("compress", "--maildir", self.mail, *arguments, status=status, **extra)

    def events(self, done):
        events = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual(events[-1]["event"], "summary")
        self.assertEqual(events[-1]["exit"], done.returncode)
        return events

    def config_file(self, name):
        path = os.path.join(self.scratch, "home", ".config", "trevix", name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        return path

    def write(self, path, text):
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def read(self, path):
        with open(path, encoding="utf-8") as file:
            return file.read()

    def all_places(self):
        """All that a run may not touch. Temporary files come and go in between, which leaves a trace
        in the time stamp of their directory alone."""
        temporary = os.path.join(self.scratch, "tmp")
        found = snapshot(self.mail, os.path.join(self.scratch, "home"), temporary)
        found[temporary] = os.listdir(temporary)
        return found

    def as_ordinary_user(self):
        """Permissions mean nothing to root: its tests run the program as somebody else."""
        if os.geteuid() != 0:
            return
        for directory, directories, files in os.walk(self.scratch):
            for name in directories + files + ["."]:
                os.lchown(os.path.join(directory, name), NOBODY, NOBODY)
        self.user = {"user": NOBODY, "group": NOBODY, "extra_groups": []}


def main():
    sys.stdout.reconfigure(errors="replace")
    unittest.main(verbosity=1)
