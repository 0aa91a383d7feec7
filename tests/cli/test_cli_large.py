#!/usr/bin/env python3
"""trevixctl compress on one very large message: memory does not grow with the message.

TREVIX_LARGE_MIB sets the size of the message; TREVIX_LARGE_DIR a directory with room for it twice
and once more.
"""

import base64
import hashlib
import os
import re
import shutil
import subprocess
import tempfile
import zipfile

import ctl

MIB = 1 << 20
MESSAGE_MIB = int(os.environ.get("TREVIX_LARGE_MIB", "1024"))
MEMORY_MIB = 200
SECONDS = 800
LINE = 57  # bytes of content in a line of base64
HEAD = (b"From: ann@example.org\nTo: ben@example.org\nSubject: Large\n"
        b"Date: Mon, 01 Oct 2007 10:00:00 +0000\nMIME-Version: 1.0\n"
        b"Content-Type: multipart/mixed; boundary=b\n\n--b\nContent-Type: text/plain\n\nhello\n"
        b"--b\nContent-Type: application/octet-stream\n"
        b"Content-Disposition: attachment; filename=large.dat\n"
        b"Content-Transfer-Encoding: base64\n\n")
TAIL = b"\n--b--\n"


class LargeMessage(ctl.Case):
    def setUp(self):
        super().setUp()
        parent = os.environ.get("TREVIX_LARGE_DIR") or tempfile.gettempdir()
        if shutil.disk_usage(parent).free < 4 * MESSAGE_MIB * MIB:
            self.skipTest(f"{parent} has no room for four times {MESSAGE_MIB} MiB")
        self.scratch = tempfile.mkdtemp(prefix="trevix-large-", dir=parent)
        self.addCleanup(shutil.rmtree, self.scratch, ignore_errors=True)
        for name in ("home", "tmp"):
            os.mkdir(os.path.join(self.scratch, name), mode=0o700)
        self.mail = os.path.join(self.scratch, "Mail")
        ctl.make_folder(self.mail)

    def write_message(self):
        """The digest and the size of the attachment of a message of the wanted size."""
        block = ctl.text_of("large", LINE * 4096 * 4).encode()
        lines = base64.encodebytes(block)
        count = (MESSAGE_MIB * MIB - len(HEAD) - len(TAIL)) // len(lines)
        digest = hashlib.sha256()
        path = os.path.join(self.mail, "cur", "1190000000.M1P1.host:2,S")
        with open(path, "wb") as file:
            file.write(HEAD)
            for _ in range(count):
                file.write(lines)
                digest.update(block)
            file.write(TAIL)
        return digest.hexdigest(), count * len(block)

    def run_measured(self):
        """The most memory, in MiB, that the program held."""
        with open(os.path.join(self.scratch, "err"), "w+b") as err:
            run = subprocess.Popen(
                [ctl.TREVIXCTL, "compress", "--no-index", "--maildir", self.mail],
                env=self.environment(), stdin=subprocess.DEVNULL, stdout=err, stderr=err)
            _, status, usage = os.wait4(run.pid, 0)
            run.returncode = os.waitstatus_to_exitcode(status)
            err.seek(0)
            self.assertEqual(run.returncode, 0, err.read().decode())
        return usage.ru_maxrss / 1024

    def new_archive(self):
        """The archive of the message as it is now, decoded piece by piece into a file."""
        names = os.listdir(os.path.join(self.mail, "cur"))
        self.assertEqual(len(names), 1)
        target = os.path.join(self.scratch, "archive.zip")
        with open(os.path.join(self.mail, "cur", names[0]), "rb") as file, \
                open(target, "wb") as archive:
            head = b""
            while not re.search(rb"large\.zip[^\0]*?\n\n\Z", head):
                line = file.readline()
                self.assertTrue(line)
                head += line
            for line in file:
                if line.startswith(b"--b"):
                    break
                archive.write(base64.b64decode(line))
        return target

    def test_takes_less_than_200_mib_of_memory(self):
        digest, size = self.write_message()
        memory = self.run_measured()
        print(f"{MESSAGE_MIB} MiB: {memory:.0f} MiB of memory")
        with zipfile.ZipFile(self.new_archive()) as archive:
            self.assertEqual(archive.namelist(), ["large.dat"])
            self.assertEqual(archive.getinfo("large.dat").file_size, size)
            found = hashlib.sha256()
            with archive.open("large.dat") as member:
                for piece in iter(lambda: member.read(MIB), b""):
                    found.update(piece)
        self.assertEqual(found.hexdigest(), digest)
        self.assertLess(memory, MEMORY_MIB)


if __name__ == "__main__":
    ctl.main()
