#!/usr/bin/env python3
"""The installed policy, on a private bus of the system's kind, with real users."""

import os
import pwd
import re
import shutil
import subprocess
import sys
import time

import installed

sys.path.insert(0, os.path.join(installed.SOURCE, "tests", "cli"))
import ctl  # noqa: E402 (found by the path)

NAME = "com.quellmar.TrevixCI1"
PATH = "/com/quellmar/TrevixCI1"
# Users that every system has: the service, a member of the group of clients, and somebody else.
SERVICE, MEMBER, GROUP, OUTSIDER = "daemon", "mail", "mail", "games"

# The rules of every system bus, and ours.
CONFIGURATION = """<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={scratch}/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Introspectable"/>
    <allow send_destination="org.freedesktop.DBus"
           send_interface="org.freedesktop.DBus.Properties"/>
  </policy>
  <include>{scratch}/policy.conf</include>
</busconfig>
"""


class Policy(installed.Case):
    @classmethod
    def setUpClass(cls):
        if os.geteuid() != 0:
            installed.skip("needs root")
        installed.require("dbus-daemon", "busctl", "setpriv")
        super().setUpClass()
        os.chmod(cls.scratch, 0o755)
        with open(cls.installed.path(f"share/dbus-1/system.d/{NAME}.conf"),
                  encoding="utf-8") as file:
            policy = file.read()
        policy, count = re.subn('user="trevix"', f'user="{SERVICE}"', policy)
        policy, groups = re.subn('group="trevix-clients"', f'group="{GROUP}"', policy)
        if (count, groups) != (1, 1):
            raise AssertionError(policy)
        cls.write("policy.conf", policy)
        cls.write("bus.conf", CONFIGURATION.format(scratch=cls.scratch))
        cls.address = f"unix:path={cls.scratch}/bus"
        cls.start(["dbus-daemon", f"--config-file={cls.scratch}/bus.conf", "--nofork",
                   "--nopidfile"])
        cls.wait(lambda: os.path.exists(cls.scratch + "/bus"), "the bus")
        os.mkdir(cls.scratch + "/homes", 0o755)
        for user in (SERVICE, MEMBER, OUTSIDER, "root"):
            cls.own(os.path.join(cls.scratch, "homes", user), user)
        cls.start(cls.as_user(SERVICE, cls.installed.path("libexec/trevix/trevixci"), "--bus",
                              "system", "--no-idle-exit"), env=cls.environment(SERVICE))
        cls.wait(lambda: cls.get(OUTSIDER, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "NameHasOwner", "s", NAME)
                 .stdout == "b true\n", "the service")

    @classmethod
    def write(cls, name, text):
        with open(os.path.join(cls.scratch, name), "w", encoding="utf-8") as file:
            file.write(text)

    @classmethod
    def own(cls, path, user):
        """Makes a directory of the user's, or gives one and all below it to the user."""
        os.makedirs(path, mode=0o700, exist_ok=True)
        about = pwd.getpwnam(user)
        for directory, _, names in os.walk(path):
            for name in names + ["."]:
                os.chown(os.path.join(directory, name), about.pw_uid, about.pw_gid)

    @classmethod
    def start(cls, command, **options):
        errors = open(os.path.join(cls.scratch, "errors"), "ab")
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=errors, stderr=errors,
                                   **options)
        errors.close()

        def stop():
            process.terminate()
            process.wait()
        cls.addClassCleanup(stop)

    @classmethod
    def wait(cls, holds, what):
        end = time.monotonic() + 60
        while not holds():
            if time.monotonic() > end:
                with open(os.path.join(cls.scratch, "errors"), encoding="utf-8") as file:
                    raise AssertionError(f"waited in vain for {what}: {file.read()}")
            time.sleep(0.01)

    @staticmethod
    def as_user(user, *command):
        return ["setpriv", f"--reuid={user}", f"--regid={pwd.getpwnam(user).pw_gid}",
                "--clear-groups", *command]

    @classmethod
    def environment(cls, user):
        home = os.path.join(cls.scratch, "homes", user)
        return {"PATH": os.environ["PATH"], "HOME": home, "TMPDIR": home, "LC_ALL": "C.UTF-8",
                "DBUS_SYSTEM_BUS_ADDRESS": cls.address,
                "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "")}

    @classmethod
    def get(cls, user, *words):
        return installed.run(*cls.as_user(user, "busctl", f"--address={cls.address}", "call",
                                          *words), env=cls.environment(user))

    def make_store(self, name):
        mail = os.path.join(self.scratch, "homes", SERVICE, name)
        for folder in ("", ".Work"):
            ctl.make_folder(os.path.join(mail, folder))
            ctl.deliver(os.path.join(mail, folder), len(folder),
                        [("a.txt", ctl.text_of(folder, 20000))])
        self.own(mail, SERVICE)
        return mail

    def compress(self, user, mail):
        return installed.run(*self.as_user(user, self.installed.ctl, "compress",
                                           "--system-service", "--maildir", mail),
                             env=self.environment(user))

    def test_root_and_the_group_are_served(self):
        for user in ("root", MEMBER):
            done = self.compress(user, self.make_store("Mail-" + user))
            self.assertEqual(done.returncode, 0, done.stderr)
            self.assertIn("2 messages changed, 2 attachments zipped", done.stdout)
            self.assertIn("index of ", done.stdout)

    def test_anybody_else_is_told_whose_it_is(self):
        done = self.compress(OUTSIDER, self.make_store("Mail"))
        self.assertEqual(done.returncode, 1)
        self.assertIn("trevixctl: service: no session was made: ", done.stderr)
        self.assertIn("hint: it is for root and the members of its group", done.stderr)

    def test_nobody_else_may_take_its_names(self):
        for name in (NAME, NAME + ".Session1", NAME + ".Other"):
            for user in (OUTSIDER, MEMBER):
                done = self.get(user, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                "org.freedesktop.DBus", "RequestName", "su", name, "0")
                self.assertNotEqual(done.returncode, 0)
                self.assertIn("Access denied", done.stderr)

    def hold(self):
        """A client that holds a session: the client's unique name, and the session's."""
        holder = subprocess.Popen(["/usr/bin/python3", "-c", HOLDER, self.address], text=True,
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE)

        def end():
            holder.communicate()
        self.addCleanup(end)
        names = holder.stdout.readline().split()
        self.assertEqual([name[0] for name in names], [":", ":"])
        return names

    def test_the_sessions_are_closed_to_anybody_else_too(self):
        _, session = self.hold()
        # The policy lets a member through; the session is another client's all the same.
        for user in (OUTSIDER, MEMBER):
            for member in (("Release",), ("Logon", "s", "")):
                done = self.get(user, session, PATH + "/Session", NAME + ".Session", *member)
                self.assertNotEqual(done.returncode, 0)
                self.assertIn("Access denied", done.stderr)
        self.assertEqual(self.get("root", session, PATH + "/Session",
                                  "org.freedesktop.DBus.Peer", "Ping").returncode, 0)

    def test_other_services_stay_as_closed_as_they_were(self):
        other, session = self.hold()
        for interface, member in (("org.freedesktop.DBus.Properties", ("GetAll", "s", "")),
                                  ("org.freedesktop.DBus.Peer", ("Ping",)),
                                  (NAME + ".Session", ("Release",))):
            done = self.get(MEMBER, other, "/", interface, *member)
            self.assertIn("Access denied", done.stderr)
        # To a session the same interface is open, as far as the bus is concerned.
        done = self.get(MEMBER, session, PATH + "/Session", "org.freedesktop.DBus.Peer", "Ping")
        self.assertEqual(done.returncode, 0, done.stderr)


# A client that makes a session and holds it until its input ends.
HOLDER = """
import sys, dbus.bus
bus = dbus.bus.BusConnection(sys.argv[1])
session = bus.call_blocking("com.quellmar.TrevixCI1", "/com/quellmar/TrevixCI1",
                            "com.quellmar.TrevixCI1.Factory", "CreateSession", "", ())
print(bus.get_unique_name(), session[0], flush=True)
sys.stdin.read()
"""

if __name__ == "__main__":
    installed.main()
