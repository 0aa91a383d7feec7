"""A private message bus, the service on it, and clients of it."""

import contextlib
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import dbus
import dbus.bus
import dbus.exceptions
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "cli"))
from ctl import attachments_of, deliver, make_folder, text_of  # noqa: E402 (found by the path)

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
TREVIXCI = os.environ.get("TREVIXCI", "")
NAME = "com.quellmar.TrevixCI1"
ROOT = "/com/quellmar/TrevixCI1"
FACTORY, SESSION = NAME + ".Factory", NAME + ".Session"
DETAILS = NAME + ".Details"
MANAGE, INDEX = NAME + ".Manage", NAME + ".Index"
PROPERTIES = "org.freedesktop.DBus.Properties"
SECONDS = 60
NO_SESSION, LOGGED_ON, IN_PROCESS = 0, 1, 2

CONFIGURATION = """<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir={scratch}</listen>
  <auth>EXTERNAL</auth>
  <servicedir>{scratch}/services</servicedir>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
  <limit name="max_completed_connections">1000</limit>
  <limit name="max_connections_per_user">1000</limit>
</busconfig>
"""


def is_stopped(pid):
    with open(f"/proc/{pid}/stat", encoding="utf-8", errors="replace") as file:
        return file.read().rpartition(")")[2].split()[0] == "T"


def wait_for(predicate, what, seconds=SECONDS):
    """Serves this process's connections until the predicate holds."""
    end = time.monotonic() + seconds
    context = GLib.MainContext.default()
    while not (answer := predicate()):
        if time.monotonic() > end:
            raise AssertionError(f"waited {seconds} s in vain for {what}")
        if not context.iteration(False):
            time.sleep(0.002)
    return answer


class PrivateBus:
    """A bus daemon with a scratch directory in which everything lies that the service may write."""

    def __init__(self, environment=None):
        self.scratch = tempfile.mkdtemp(prefix="trevix-bus-")
        for name in ("services", "home", "tmp"):
            os.mkdir(os.path.join(self.scratch, name), 0o700)
        self.write("bus.conf", CONFIGURATION.format(scratch=self.scratch))
        self.write(f"services/{NAME}.service", f"[D-BUS Service]\nName={NAME}\nExec={TREVIXCI}\n")
        home = os.path.join(self.scratch, "home")
        self.environment = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": home,
            "XDG_CONFIG_HOME": home + "/.config", "XDG_CACHE_HOME": home + "/.cache",
            "TMPDIR": os.path.join(self.scratch, "tmp"), "TZ": "UTC", "LC_ALL": "C.UTF-8",
            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", ""),
            "UBSAN_OPTIONS": os.environ.get("UBSAN_OPTIONS", "print_stacktrace=1"),
            **(environment or {})}
        self.errors = os.path.join(self.scratch, "errors")
        ours, theirs = os.pipe()
        with open(self.errors, "wb") as errors:
            self.daemon = subprocess.Popen(
                ["dbus-daemon", f"--config-file={self.scratch}/bus.conf", "--nofork",
                 "--nopidfile", f"--print-address={theirs}"],
                pass_fds=[theirs], env=self.environment, stdin=subprocess.DEVNULL,
                stdout=errors, stderr=errors)
        os.close(theirs)
        with os.fdopen(ours) as pipe:
            self.address = pipe.readline().strip()

    def write(self, name, text):
        with open(os.path.join(self.scratch, name), "w", encoding="utf-8") as file:
            file.write(text)

    def stop(self):
        self.daemon.terminate()
        self.daemon.wait()

    def remove(self):
        self.stop()
        shutil.rmtree(self.scratch, ignore_errors=True)

    def processes(self):
        """The service's processes on this bus: {pid: whether it is a session's}."""
        found = {}
        mark = f"HOME={self.scratch}/home\0".encode()
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            try:
                if os.readlink(f"/proc/{entry}/exe") != os.path.realpath(TREVIXCI):
                    continue
                with open(f"/proc/{entry}/environ", "rb") as file:
                    if mark not in file.read() + b"\0":
                        continue
                with open(f"/proc/{entry}/cmdline", "rb") as file:
                    line = file.read()
            except OSError:
                continue
            found[int(entry)] = b"--owner" in line or b"--holder" in line
        return found

    def sessions(self):
        return [pid for pid, is_session in self.processes().items() if is_session]

    def brokers(self):
        return [pid for pid, is_session in self.processes().items() if not is_session]


class Client:
    """A connection of its own to the bus."""

    def __init__(self, bus):
        self.connection = dbus.bus.BusConnection(bus.address, mainloop=DBusGMainLoop())
        self.connection.set_exit_on_disconnect(False)

    @property
    def name(self):
        return self.connection.get_unique_name()

    def call(self, name, path, interface, method, signature="", *arguments, timeout=SECONDS):
        return self.connection.call_blocking(name, path, interface, method, signature, arguments,
                                             timeout=timeout)

    def create(self):
        return Session(self, *self.call(NAME, ROOT, FACTORY, "CreateSession"))

    def create_for(self, holder):
        return Session(self, *self.call(NAME, ROOT, FACTORY, "CreateSessionFor", "s", holder))

    def process_of(self, name):
        return int(self.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "GetConnectionUnixProcessID", "s", name))

    def close(self):
        self.connection.close()


class Object:
    """An object of the service; `events` are what it sent to this client, oldest first."""

    def __init__(self, client, name, path, interface):
        self.client, self.name, self.path, self.interface = client, name, path, interface
        self.events = []
        self.on_event = None

    def listen(self):
        self.client.connection.add_signal_receiver(
            self._note, dbus_interface=self.interface, bus_name=self.name, path=self.path,
            member_keyword="member")
        return self

    def _note(self, *arguments, member):
        self.events.append((str(member),) + tuple(
            str(a) if isinstance(a, str) else int(a) for a in arguments))
        if self.on_event:
            self.on_event(self.events[-1])

    def call(self, method, signature="", *arguments, **options):
        return self.client.call(self.name, self.path, self.interface, method, signature,
                                *arguments, **options)

    def get(self, name):
        return self.client.call(self.name, self.path, PROPERTIES, "Get", "ss", self.interface,
                                name)

    def get_all(self):
        return self.client.call(self.name, self.path, PROPERTIES, "GetAll", "s", self.interface)

    def set(self, name, value):
        self.client.call(self.name, self.path, PROPERTIES, "Set", "ssv", self.interface, name,
                         value)

    def later(self, method, signature="", *arguments, interface=None):
        """Sends a call; the answers or the errors come into the list, in their order."""
        answers = []
        self.client.connection.call_async(
            self.name, self.path, interface or self.interface, method, signature, arguments,
            lambda *values: answers.append(values[0] if values else None), answers.append,
            timeout=SECONDS)
        return answers

    def ended(self):
        return bool(self.events) and self.events[-1][0] in ("Complete", "Abort")

    def wait_end(self, count=1):
        def ends():
            return sum(event[0] in ("Complete", "Abort") for event in self.events) >= count
        wait_for(ends, f"the end of a run ({self.events[-3:]})")
        return self.events[-1]


class Session(Object):
    def __init__(self, client, name, path):
        super().__init__(client, str(name), str(path), SESSION)
        self.process = client.process_of(self.name)

    def logon(self, address):
        self.call("Logon", "s", address)
        return self

    @property
    def state(self):
        return int(self.get("State"))

    def manage(self):
        return Object(self.client, self.name, str(self.get("Manage")), MANAGE).listen()

    def index(self):
        return Object(self.client, self.name, str(self.get("Index")), INDEX).listen()

    def pause(self):
        os.kill(self.process, signal.SIGSTOP)

    def go_on(self):
        os.kill(self.process, signal.SIGCONT)


class Case(unittest.TestCase):
    """A private bus and a small store; in the end nothing may be left of either."""

    environment = {}

    def setUp(self):
        if not TREVIXCI:
            self.skipTest("TREVIXCI does not name the program")
        self.bus = PrivateBus(self.environment)
        self.addCleanup(self.bus.remove)
        self.mail = os.path.join(self.bus.scratch, "Mail")
        self.address = "maildir:" + self.mail
        self.clients = []
        self.before = None

    def tearDown(self):
        for client in self.clients:
            client.close()
        left = self.bus.processes()
        for pid in left:
            # A test that failed may have left it stopped. One that runs is not to be disturbed: a
            # leak checker stops its process at its end, and would miss that it has.
            with contextlib.suppress(ProcessLookupError, FileNotFoundError):
                if is_stopped(pid):
                    os.kill(pid, signal.SIGCONT)
        try:
            wait_for(lambda: not self.bus.processes(), "the end of all processes", 20)
        finally:
            for pid in self.bus.processes():
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGKILL)
        self.bus.stop()
        with open(self.bus.errors, encoding="utf-8", errors="replace") as file:
            errors = file.read()
        self.assertIsNone(re.search("Sanitizer|runtime error|terminate called", errors),
                          errors[-8000:])
        if self.before is not None:
            self.assertEqual(attachments_of(self.mail), self.before, f"mail was lost ({left})")

    def make_store(self, messages=6, size=20000, folders=("", ".Archive", ".Work")):
        for folder in folders:
            make_folder(os.path.join(self.mail, folder))
        for number in range(messages):
            deliver(os.path.join(self.mail, folders[number % len(folders)]), number,
                    [(f"a{number}.txt", text_of(f"a{number}", size)),
                     (f"b{number}.doc", text_of(f"b{number}", size))])
        self.before = attachments_of(self.mail)

    def client(self):
        client = Client(self.bus)
        self.clients.append(client)
        return client

    def session(self):
        return self.client().create()

    def logged_on(self):
        session = self.session().logon(self.address)
        self.assertEqual(session.state, LOGGED_ON, session.get("LastError"))
        return session

    def zipped(self):
        """How many messages hold an archive."""
        count = 0
        for directory, _, files in os.walk(self.mail):
            if os.path.basename(directory) in ("cur", "new"):
                for name in files:
                    try:
                        with open(os.path.join(directory, name), "rb") as file:
                            count += b".zip" in file.read()
                    except FileNotFoundError:
                        pass  # replaced since the listing
        return count

    def assert_free(self):
        """The store's lock is free: a run of a new session goes through, and treats the rest."""
        session = self.logged_on()
        manage = session.manage()
        manage.set("Compress", True)
        manage.call("Manage", "b", False)
        self.assertEqual(manage.wait_end()[0], "Complete", manage.events)
        session.call("Release")

    def assert_error(self, name, work, *arguments):
        with self.assertRaises(dbus.exceptions.DBusException) as caught:
            work(*arguments)
        self.assertEqual(caught.exception.get_dbus_name(), "org.freedesktop.DBus.Error." + name,
                         caught.exception)

    def start_paused(self, launch_index=False):
        """A compression run whose process is stopped when its first event has come."""
        session = self.logged_on()
        manage = session.manage()
        manage.set("Compress", True)
        manage.on_event = lambda event: session.pause()
        manage.call("Manage", "b", launch_index)
        wait_for(lambda: manage.events, "the first event")
        manage.on_event = None
        return session, manage


def main():
    unittest.main(verbosity=1)
