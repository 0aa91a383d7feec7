"""Compresses a store on a disk that is full: a small file system in memory, filled to the brim.

The file systems are mounted in a name space of this test's own, so no privilege is needed and
nothing else sees them; where the system does not permit that, the test is skipped with a reason.
With every amount of free room, nothing may be lost or altered, the program must say that the disk
is full, and the run after room was made must finish the work.
"""

import contextlib
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import drive
import mail_reader

INSIDE = "TREVIX_INSIDE_NAMESPACE"
MOUNT_BYTES = 16 << 20
PAGE = 4096
SECONDS = 40


def mount(directory):
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={MOUNT_BYTES},mode=700", "none",
                    directory], check=True)


def free_bytes(directory):
    about = os.statvfs(directory)
    return about.f_bfree * about.f_frsize


class FullDiskTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        drive.program("TREVIXCTL")
        if os.environ.get(INSIDE) != "1":
            drive.skip("this system does not permit a name space with mounts of its own")
        cls.parent = tempfile.mkdtemp(prefix="trevix-full-", dir=drive.scratch_parent())
        cls.addClassCleanup(shutil.rmtree, cls.parent, ignore_errors=True)
        cls.template = os.path.join(cls.parent, "template")
        drive.make_store(cls.template, messages=6, kinds="files,only_a_file,same_name_twice",
                         size_kb=60)
        cls.parser = mail_reader.Parser()
        cls.before = mail_reader.snapshot(cls.template, cls.parser)

    def judge(self, sandbox, **options):
        return mail_reader.compare(self.before, sandbox.snapshot(self.parser), "any", **options)

    def sandbox_on(self, place, stack):
        """A sandbox whose place ("root", "store" or "temporary") is a small file system."""
        if place == "root":
            directory = tempfile.mkdtemp(prefix="disk-", dir=self.parent)
            mount(directory)
            stack.callback(subprocess.run, ["umount", "-l", directory], check=True)
            sandbox = stack.enter_context(drive.Sandbox(directory))
        else:
            sandbox = stack.enter_context(drive.Sandbox(self.parent))
            directory = getattr(sandbox, place)
            os.makedirs(directory, exist_ok=True)
            mount(directory)
            stack.callback(subprocess.run, ["umount", "-l", directory], check=True)
        shutil.copytree(self.template, sandbox.store, dirs_exist_ok=True)
        return sandbox, directory

    def fill(self, directory, room):
        """Leaves so many bytes free, as far as pages go."""
        path = os.path.join(directory, "filler")
        size = free_bytes(directory) - room
        with open(path, "wb") as file:
            os.posix_fallocate(file.fileno(), 0, size)
        self.assertLessEqual(free_bytes(directory), room + PAGE)
        return path

    def needed(self, place, mode):
        """Room with which a run succeeds."""
        room = 256 << 10
        while room < MOUNT_BYTES // 2:
            status, wrong = self.try_with(room, place, mode)
            self.assertIsNone(wrong)
            if status == drive.EXIT_DONE:
                break
            room *= 2
        return room

    def try_with(self, room, place, mode):
        """(exit status, None or what was wrong) of a run with so much room."""
        with contextlib.ExitStack() as stack:
            sandbox, directory = self.sandbox_on(place, stack)
            filler = self.fill(directory, room)
            done = sandbox.compress("--" + mode)
            found = self.judge(sandbox, allow_tmp=True)
            undone = self.judge(sandbox, allow_tmp=True, complete=True)
            if done.status not in (drive.EXIT_DONE, drive.EXIT_FAILED, drive.EXIT_SOME_FAILED):
                found.append("unknown exit status")
            if (done.status != drive.EXIT_DONE or undone) and "trevixctl: " not in done.err:
                found.append("left mail untreated without a word")
            if undone and done.status == drive.EXIT_DONE:
                found.append("mail is untreated, and the exit status is that of success")
            os.unlink(filler)
            again = sandbox.compress("--" + mode)
            if again.status == drive.EXIT_BUSY:
                again = sandbox.run(sandbox.command("status"))
            if again.status != drive.EXIT_DONE:
                found.append("the run after room was made failed: " + again.describe())
            elif "compress" in again.out or "zipped" in again.out:
                found += self.judge(sandbox, complete=True)
            else:
                found += self.judge(sandbox)
            wrong = f"{room} bytes free: {done.describe()}\n" + "\n".join(found) if found else None
            return done.status, wrong

    def sweep(self, place):
        for mode in ("separate", "rollup"):
            with self.subTest(mode=mode):
                needed = self.needed(place, mode)
                statuses = []

                def trial(room, mode=mode, statuses=statuses):
                    status, wrong = self.try_with(room, place, mode)
                    statuses.append(status)
                    return wrong

                rooms = range(0, needed + PAGE, PAGE)
                failures, count = drive.in_parallel(trial, rooms, drive.budget(SECONDS / 6))
                drive.report(self, f"{place} full, {mode}: {count} of {len(rooms)} amounts of "
                                   f"room", failures)
                # The sweep began with too little room, and there is an amount that is enough.
                self.assertIn(drive.EXIT_FAILED, statuses)
                self.assertLess(needed, MOUNT_BYTES // 2)

    def test_a_full_disk_of_the_mail_loses_nothing(self):
        self.sweep("store")

    def test_a_full_disk_of_temporary_files_loses_nothing(self):
        self.sweep("temporary")

    def test_a_full_disk_of_everything_loses_nothing(self):
        self.sweep("root")


def enter_namespace():
    """Runs this test again in a name space of its own, when there can be one."""
    command = ["unshare", "--user", "--map-root-user", "--mount"]
    probe = command + ["sh", "-c", "mount -t tmpfs none /mnt"]
    try:
        if subprocess.run(probe, capture_output=True, check=False).returncode != 0:
            return
    except FileNotFoundError:
        return
    os.environ[INSIDE] = "1"
    os.execvp(command[0], command + [sys.executable, *sys.argv])


if __name__ == "__main__":
    if os.environ.get(INSIDE) != "1":
        enter_namespace()
    unittest.main(verbosity=2)
