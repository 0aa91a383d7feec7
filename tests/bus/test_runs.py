"""Runs through the service: their events, and calls of every kind in the middle of them."""

import os
import signal
import subprocess
import sys
import time

import bus
from bus import IN_PROCESS, LOGGED_ON, MANAGE, NO_SESSION, PROPERTIES


class Events(bus.Case):
    def test_of_a_compression_come_all_and_in_order(self):
        self.make_store(7)
        session = self.logged_on()
        manage = session.manage()
        manage.set("Compress", True)
        manage.call("Manage", "b", False)
        last = manage.wait_end()
        self.assertEqual(last[0], "Complete")
        expected = []
        for name, count in (("Inbox", 3), ("Archive", 2), ("Work", 2)):
            expected.append(("FolderChange", name, count))
            expected += [("Progress", name, i + 1) for i in range(count)]
        self.assertEqual(manage.events[:-1], expected)
        self.assertEqual(self.zipped(), 7)
        self.assertEqual(manage.get("InProcess"), False)
        self.assertEqual(session.state, LOGGED_ON)

    def test_of_the_index_run_follow_those_of_the_compression(self):
        self.make_store()
        session = self.logged_on()
        manage, index = session.manage(), session.index()
        order = []
        manage.on_event = lambda event: order.append("manage " + event[0])
        index.on_event = lambda event: order.append("index " + event[0])
        manage.set("Compress", True)
        manage.call("Manage", "b", True)
        self.assertEqual(index.wait_end()[0], "Complete")
        self.assertEqual(order.index("manage Complete") + 1, order.index("index FolderChange"))
        self.assertEqual(index.events[-2], ("Progress", "Updating index, please wait...", 0))
        self.assertEqual(index.get("Refresh"), True)

    def test_of_an_index_run_alone(self):
        self.make_store()
        session = self.logged_on()
        index = session.index()
        for recreate in (True, False):
            index.events.clear()
            index.call("Index", "b", recreate)
            self.assertEqual(index.get("InProcess"), True)
            self.assertEqual(index.get("Regenerate"), recreate)
            self.assertEqual(index.wait_end()[0], "Complete")
            self.assertEqual(session.state, LOGGED_ON)

    def test_go_to_the_owner_and_nobody_else(self):
        self.make_store()
        eavesdropper = bus.Object(self.client(), None, None, MANAGE).listen()
        session = self.logged_on()
        manage = session.manage()
        manage.call("Manage", "b", False)
        manage.wait_end()
        # What had been sent to it would have come before this answer.
        eavesdropper.client.call(session.name, "/", "org.freedesktop.DBus.Peer", "Ping")
        bus.GLib.MainContext.default().iteration(False)
        self.assertEqual(eavesdropper.events, [])

    def test_of_folders_with_any_bytes_in_their_names(self):
        self.make_store(2, folders=("", ".Plain"))
        names = [b".\xff\xfe bytes", b".half \xc3", b".surrogate \xed\xa0\x80", b".line\nbreak",
                 b".non \xef\xbf\xbe", ".gr\u00fc\u00df".encode()]
        for number, name in enumerate(names):
            path = os.path.join(os.fsencode(self.mail), name)
            for part in (b"cur", b"new", b"tmp"):
                os.makedirs(os.path.join(path, part), mode=0o700)
            bus.deliver(os.fsdecode(path), 100 + number, [("a.txt", bus.text_of("a", 9000))])
        self.before = bus.attachments_of(self.mail)
        session = self.logged_on()
        manage, index = session.manage(), session.index()
        manage.set("Compress", True)
        manage.call("Manage", "b", True)
        self.assertEqual(manage.wait_end()[0], "Complete", manage.events)
        self.assertEqual(index.wait_end()[0], "Complete", index.events)
        seen = {event[1] for event in manage.events if event[0] == "FolderChange"}
        self.assertEqual(len(seen), 2 + len(names), seen)
        self.assertEqual(sum("\ufffd" in name for name in seen), 4, seen)


class Starting(bus.Case):
    def test_returns_within_milliseconds(self):
        self.make_store(20)
        session = self.logged_on()
        manage, index = session.manage(), session.index()
        manage.set("Compress", True)
        begin = time.monotonic()
        manage.call("Manage", "b", True)
        taken = time.monotonic() - begin
        self.assertEqual(manage.events, [])
        self.assertLess(taken, 0.045)  # the run begins 50 ms later
        self.assertEqual(session.state, IN_PROCESS)
        manage.wait_end()
        index.wait_end()
        begin = time.monotonic()
        index.call("Index", "b", False)
        self.assertLess(time.monotonic() - begin, 0.045)
        index.wait_end(2)

    def test_twice_before_it_begins_is_one_run(self):
        self.make_store()
        session = self.logged_on()
        manage = session.manage()
        manage.set("Compress", True)
        manage.call("Manage", "b", False)
        manage.call("Manage", "b", False)
        self.assertEqual(manage.wait_end()[0], "Complete")
        self.assertEqual(manage.events.count(("FolderChange", "Inbox", 2)), 1)
        self.assertEqual(session.state, LOGGED_ON)

    def test_again_in_a_run_is_refused_and_the_run_goes_on(self):
        self.make_store(200)  # it must outlast the timer of the second call
        session, manage = self.start_paused()
        answers = manage.later("Manage", "b", False)
        session.go_on()
        manage.wait_end(2)
        self.assertEqual(answers, [None])
        ends = [event for event in manage.events if event[0] in ("Abort", "Complete")]
        self.assertEqual(ends[0], ("Abort", "Aborting procedure to avoid conflict with another "
                                            "process."))
        self.assertEqual(ends[1][0], "Complete")
        self.assertEqual(self.zipped(), 200)

    def test_of_both_lets_the_first_run_through(self):
        self.make_store(8, size=200000)
        session = self.logged_on()
        manage, index = session.manage(), session.index()
        manage.set("Compress", True)
        manage.call("Manage", "b", False)
        index.call("Index", "b", False)
        self.assertEqual(manage.wait_end()[0], "Complete")
        self.assertEqual(index.wait_end(), ("Abort", "Aborting procedure to avoid conflict with "
                                                     "another process"))
        self.assertEqual(session.state, LOGGED_ON)
        self.assertEqual(self.zipped(), 8)

    def test_in_a_second_session_is_refused_while_the_store_is_held(self):
        self.make_store()
        session, manage = self.start_paused()
        other = self.logged_on()
        second = other.manage()
        second.call("Manage", "b", False)
        self.assertEqual(second.wait_end()[0], "Abort")
        session.go_on()
        self.assertEqual(manage.wait_end()[0], "Complete")

    def test_with_an_id_list_of_four_megabytes(self):
        self.make_store(1)
        session = self.logged_on()
        manage, index = session.manage(), session.index()
        ids = ";".join(["0123456789ABCDEF" * 8] * (4 * 1024 * 1024 // 129))
        index.set("TargetStoreIDs", ids)
        self.assertEqual(index.get("TargetStoreIDs"), ids)
        index.call("Index", "b", False)
        self.assertEqual(index.wait_end()[0], "Abort")
        manage.set("FolderIDs", ids.replace(";", ",all;"))
        manage.call("Manage", "b", False)
        bus.wait_for(lambda: session.state == IN_PROCESS, "the run")
        manage.set("Cancel", True)
        self.assertEqual(manage.wait_end()[0], "Abort")

    def test_with_a_list_that_names_the_store(self):
        self.make_store(2)
        session = self.logged_on()
        manage, index = session.manage(), session.index()
        index.call("Index", "b", True)
        index.wait_end()
        manage.set("Compress", True)
        manage.set("FolderIDs", index.get("TargetStoreIDs") + ",all")
        manage.call("Manage", "b", False)
        self.assertEqual(manage.wait_end()[0], "Complete")
        self.assertEqual(self.zipped(), 2)


class InARun(bus.Case):
    def test_calls_are_served_in_their_order_at_the_next_yield(self):
        self.make_store(12)
        session, manage = self.start_paused()
        get = ("Get", "ss")
        answers = [
            manage.later(*get, MANAGE, "InProcess", interface=PROPERTIES),
            session.later(*get, bus.SESSION, "State", interface=PROPERTIES),
            manage.later("Set", "ssv", MANAGE, "HTML", True, interface=PROPERTIES),
            manage.later(*get, MANAGE, "HTML", interface=PROPERTIES),
            manage.later("Set", "ssv", MANAGE, "Cancel", True, interface=PROPERTIES),
            manage.later(*get, MANAGE, "Cancel", interface=PROPERTIES),
        ]
        session.go_on()
        self.assertEqual(manage.wait_end(), ("Abort", "Cancelled"))
        self.assertEqual(answers, [[True], [IN_PROCESS], [None], [True], [None], [True]])
        # The message at hand was treated, at most one more was begun.
        self.assertLessEqual(self.zipped(), 2)

    def test_cancel_frees_the_store(self):
        self.make_store(9)
        session, manage = self.start_paused()
        manage.later("Set", "ssv", MANAGE, "Cancel", True, interface=PROPERTIES)
        session.go_on()
        self.assertEqual(manage.wait_end(), ("Abort", "Cancelled"))
        self.assertEqual(manage.get("InProcess"), True)
        self.assert_free()
        self.assertEqual(self.zipped(), 9)

    def test_cancel_of_an_index_run_frees_the_store(self):
        self.make_store(9)
        session = self.logged_on()
        index = session.index()
        index.on_event = lambda event: session.pause()
        index.call("Index", "b", True)
        bus.wait_for(lambda: index.events, "the first event")
        index.on_event = None
        index.later("Set", "ssv", bus.INDEX, "Cancel", True, interface=PROPERTIES)
        session.go_on()
        end = index.wait_end()
        self.assertEqual(end[0], "Abort")
        self.assertIn("canceled", end[1])
        self.assertEqual(session.state, LOGGED_ON)
        self.assert_free()

    def test_ten_thousand_looks_at_the_state_change_nothing(self):
        self.make_store(40, size=100000)
        session = self.logged_on()
        manage = session.manage()
        manage.set("Compress", True)
        manage.call("Manage", "b", False)
        seen = {session.state for _ in range(10000)}
        self.assertLessEqual(seen, {LOGGED_ON, IN_PROCESS})
        self.assertIn(IN_PROCESS, seen)
        self.assertEqual(manage.wait_end()[0], "Complete")
        counts = [event[2] for event in manage.events if event[:2] == ("Progress", "Inbox")]
        self.assertEqual(counts, list(range(1, len(counts) + 1)))
        self.assertEqual(self.zipped(), 40)

    def test_a_logon_stops_the_run_and_frees_the_store(self):
        self.make_store(9)
        session, manage = self.start_paused()
        answers = session.later("Logon", "s", "")
        late = session.later("Get", "ss", bus.SESSION, "Manage", interface=PROPERTIES)
        session.go_on()
        self.assertEqual(manage.wait_end(), ("Abort", "Cancelled"))
        bus.wait_for(lambda: answers and late, "the answers")
        self.assertEqual(answers, [None])
        self.assertNotEqual(late, [manage.path])  # asked after the log-on, answered after it
        self.assertEqual(session.state, LOGGED_ON)
        again = session.manage()
        again.set("Compress", True)
        again.call("Manage", "b", False)
        self.assertEqual(again.wait_end()[0], "Complete")
        self.assertEqual(self.zipped(), 9)

    def test_the_end_of_the_session_stops_the_run_and_frees_the_store(self):
        self.make_store(9)
        session, manage = self.start_paused(launch_index=True)
        answers = session.later("EndSession")
        session.go_on()
        self.assertEqual(manage.wait_end(), ("Abort", "Cancelled"))
        bus.wait_for(lambda: answers, "the answer")
        self.assertEqual(answers, [None])
        self.assertEqual(session.get("Manage"), manage.path)
        manage.events.clear()
        manage.call("Manage", "b", False)
        self.assertEqual(manage.wait_end()[0], "Abort")
        self.assertIn(session.state, (NO_SESSION, IN_PROCESS))
        self.assert_free()
        self.assertEqual(self.zipped(), 9)

    def test_an_index_run_survives_the_same(self):
        self.make_store(9)
        for method, signature, arguments in (("Logon", "s", ("",)), ("EndSession", "", ())):
            with self.subTest(method):
                session = self.logged_on()
                index = session.index()
                index.on_event = lambda event, session=session: session.pause()
                index.call("Index", "b", False)
                bus.wait_for(lambda index=index: index.events, "the first event")
                index.on_event = None
                answers = session.later(method, signature, *arguments)
                session.go_on()
                self.assertEqual(index.wait_end()[0], "Abort")
                bus.wait_for(lambda answers=answers: answers, "the answer")
                self.assertEqual(answers, [None])
                session.call("Release")
        self.assert_free()


class AClientThatDoesNotRead(bus.Case):
    CLIENT = """
import os, signal, sys
sys.path.insert(0, sys.argv[1])
import bus
class Bus: address = sys.argv[2]
session = bus.Client(Bus).create().logon(sys.argv[3])
manage = session.manage()
manage.set("Compress", True)
manage.call("Manage", "b", False)
print(session.process, flush=True)
os.kill(os.getpid(), signal.SIGSTOP)
"""

    def test_holds_up_neither_its_run_nor_others(self):
        self.make_store(30)
        client = subprocess.Popen(
            [sys.executable, "-c", self.CLIENT, os.path.dirname(bus.__file__), self.bus.address,
             self.address], stdout=subprocess.PIPE, text=True)
        self.addCleanup(client.communicate)
        self.addCleanup(client.kill)
        process = int(client.stdout.readline())
        os.waitid(os.P_PID, client.pid, os.WSTOPPED | os.WNOWAIT)
        bus.wait_for(lambda: self.zipped() == 30, "the whole run")
        other = self.session().logon(self.address)
        self.assertEqual(other.state, LOGGED_ON)
        self.assertIn(process, self.bus.sessions())
        client.send_signal(signal.SIGKILL)
        bus.wait_for(lambda: process not in self.bus.sessions(), "the end of its session")


if __name__ == "__main__":
    bus.main()
