"""What the tests of the attachment index share: stores to index, and the commands around it."""

import io
import os
import sqlite3
import zipfile

import ctl

LINK = b"""From: ann@example.org\r
To: ben@example.org\r
Subject: A link\r
Date: Mon, 01 Oct 2007 10:00:00 +0000\r
MIME-Version: 1.0\r
Content-Type: multipart/mixed; boundary="b"\r
\r
--b\r
Content-Type: text/plain\r
\r
Text\r
--b\r
Content-Type: message/external-body; access-type=local-file; name="/srv/share/plan.pdf"\r
\r
Content-Type: application/pdf\r
Content-Disposition: attachment; filename="plan.pdf"\r
\r
--b--\r
"""


def zip_of(*members):
    """The bytes of an archive of (name, text) members."""
    target = io.BytesIO()
    with zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, text in members:
            archive.writestr(zipfile.ZipInfo(name, (2007, 10, 1, 12, 0, 0)), text)
    return target.getvalue()


def deliver(folder, number, attachments=(), raw=None, received=None, **headers):
    """A message with (name, bytes) attachments; headers replace those of ctl.make_message."""
    if raw is None:
        message = ctl.email.message.EmailMessage(policy=ctl.email.policy.SMTP)
        headers = {"From": "Ann <ann@example.org>", "To": "ben@example.org",
                   "Subject": f"Message {number}", "Date": "Mon, 01 Oct 2007 10:00:00 +0000",
                   "Message-ID": f"<{number}@example.org>", **headers}
        for name, value in headers.items():
            message[name] = value
        message.set_content(f"Text of message {number}\n")
        for name, content in attachments:
            message.add_attachment(content, maintype="application", subtype="octet-stream",
                                   filename=name)
        raw = message.as_bytes()
    received = received or 1190000000 + number
    path = os.path.join(folder, "cur", f"{received}.M{number}P1.host:2,S")
    with open(path, "wb") as file:
        file.write(raw)
    os.utime(path, (received, received))
    return path


class IndexCase(ctl.Case):
    def index(self, *arguments, status=0, **extra):
        return self.ctl("index", "--maildir", self.mail, *arguments, status=status, **extra)

    def find(self, *arguments, status=0, **extra):
        return self.ctl("find", "--maildir", self.mail, *arguments, status=status, **extra)

    def extract(self, *arguments, status=0, **extra):
        return self.ctl("extract", "--maildir", self.mail, "--into", self.into, *arguments,
                        status=status, **extra)

    @property
    def into(self):
        return os.path.join(self.scratch, "out")

    def rows(self, *arguments, status=0):
        """The rows that find gives, as objects."""
        return [event for event in self.events(self.find("--json", *arguments, status=status))
                if event["event"] == "row"]

    def names(self, *arguments):
        """The sorted names that find gives; [] when it finds nothing."""
        done = self.run_ctl("find", "--maildir", self.mail, "--json", *arguments)
        events = self.events(done)
        names = sorted(event["FileName"] for event in events if event["event"] == "row")
        self.assertEqual(done.returncode, 0 if names else 1, done.stderr)
        self.assertEqual(events[-1]["count"], len(names))
        return names

    def saved(self):
        return sorted(os.listdir(self.into)) if os.path.isdir(self.into) else []

    def read_bytes(self, name):
        with open(os.path.join(self.into, name), "rb") as file:
            return file.read()

    def saved_index(self, content=None):
        """Replaces the saved index by other bytes, or deletes it."""
        with sqlite3.connect(os.path.join(self.mail, "trevix-associated.db")) as database:
            if content is None:
                done = database.execute("DELETE FROM attachment WHERE name = 'txattach.zip'")
            else:
                done = database.execute(
                    "UPDATE attachment SET content = ? WHERE name = 'txattach.zip'", (content,))
            self.assertEqual(done.rowcount, 1)
        database.close()

    def mail_places(self):
        return ctl.snapshot(*[os.path.join(self.mail, part) for part in
                              ("cur", "new", ".Archive/cur", ".Archive.2019/cur", ".Work/cur")])
