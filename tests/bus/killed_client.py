"""A client in a process of its own: ADDRESS STORE STEP kills itself at the step of a run,
ADDRESS COUNT cycles creates and releases sessions."""

import os
import signal
import sys

import bus
from bus import FACTORY, NAME, ROOT


class Bus:
    address = sys.argv[1]


def die_at(step, here):
    if step == here:
        os.kill(os.getpid(), signal.SIGKILL)


def run(store, step):
    client = bus.Client(Bus)
    if step == "asked":
        client.connection.call_async(NAME, ROOT, FACTORY, "CreateSession", "", (), None, None)
        client.connection.flush()
        die_at(step, "asked")
    session = client.create()
    die_at(step, "created")
    session.logon(store)
    die_at(step, "logged on")
    manage, index = session.manage(), session.index()
    manage.set("Compress", True)
    die_at(step, "set")
    counts = {}

    def note(prefix, event):
        key = prefix + event[0]
        counts[key] = counts.get(key, 0) + 1
        die_at(step, f"{key} {counts[key]}")

    manage.on_event = lambda event: note("", event)
    index.on_event = lambda event: note("index ", event)
    if step == "asked to run":
        manage.later("Manage", "b", True)
        client.connection.flush()
        die_at(step, "asked to run")
    manage.call("Manage", "b", True)
    die_at(step, "started")
    index.wait_end()
    # A step that the run did not have: there was nothing more to do. The end is as good.
    os.kill(os.getpid(), signal.SIGKILL)


def cycle(count):
    for _ in range(count):
        client = bus.Client(Bus)
        session = client.create()
        session.get("State")
        session.call("Release")
        client.close()
    print(count)


if sys.argv[3] == "cycles":
    cycle(int(sys.argv[2]))
else:
    run(sys.argv[2], sys.argv[3])
