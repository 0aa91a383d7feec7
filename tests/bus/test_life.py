"""How the service's processes begin and end, and who is disturbed by it: nobody."""

import os
import signal
import subprocess
import sys
import unittest

import dbus

import bus
from bus import FACTORY, LOGGED_ON, NAME, ROOT, wait_for

HERE = os.path.dirname(os.path.abspath(__file__))
CLIENT = os.path.join(HERE, "killed_client.py")


class Release(bus.Case):
    def test_ends_the_process_and_the_broker_after_the_last(self):
        one, two = self.session(), self.session()
        one.call("Release")
        wait_for(lambda: self.bus.sessions() == [two.process], "the end of the first session")
        self.assertEqual(len(self.bus.brokers()), 1)
        self.assertEqual(two.state, bus.NO_SESSION)
        two.call("Release")
        wait_for(lambda: not self.bus.processes(), "the end of all", 2)

    def test_makes_later_calls_errors_of_the_bus(self):
        self.make_store(1)
        session = self.logged_on()
        manage = session.manage()
        session.call("Release")
        for thing, method in ((session, "EndSession"), (session, "Release"), (manage, "Manage")):
            with self.assertRaises(dbus.exceptions.DBusException) as caught:
                thing.call(method, timeout=5)
            self.assertIn(caught.exception.get_dbus_name().rsplit(".", 1)[1],
                          ("UnknownObject", "ServiceUnknown", "NoReply"))

    def test_together_with_other_calls_leaves_none_without_an_answer(self):
        session = self.session()
        answers = [session.later("Release"), session.later("Release"), session.later("EndSession")]
        wait_for(lambda: all(answers), "the answers")
        self.assertEqual(answers[0], [None])

    def test_in_a_run_stops_it_and_frees_the_store(self):
        self.make_store(9)
        session, manage = self.start_paused(launch_index=True)
        answers = session.later("Release")
        session.go_on()
        self.assertEqual(manage.wait_end(), ("Abort", "Cancelled"))
        wait_for(lambda: answers, "the answer")
        self.assertEqual(answers, [None])
        self.assertLess(self.zipped(), 9)
        wait_for(lambda: not self.bus.processes(), "the end of all")
        self.assert_free()
        self.assertEqual(self.zipped(), 9)


class AClientThatIsKilled(bus.Case):
    def start(self, step):
        """A client that kills itself at the given step."""
        return subprocess.Popen([sys.executable, CLIENT, self.bus.address, self.address, step],
                                stdout=subprocess.PIPE, text=True)

    def test_at_any_step_leaves_the_store_free_and_nothing_else(self):
        self.make_store(9)
        other = self.logged_on()
        steps = ["asked", "created", "logged on", "set", "asked to run", "started", "FolderChange 1",
                 "Progress 1", "Progress 2", "FolderChange 2", "Progress 5", "Progress 9",
                 "Complete 1", "index FolderChange 1", "index Progress 1", "index Progress 4",
                 "index Complete 1"]
        for step in steps:
            with self.subTest(step):
                client = self.start(step)
                client.communicate(timeout=bus.SECONDS)
                self.assertEqual(client.returncode, -signal.SIGKILL)
                wait_for(lambda: self.bus.sessions() == [other.process], "the end of its session")
                self.assertEqual(bus.attachments_of(self.mail), self.before)
        self.assertEqual(other.state, LOGGED_ON)
        manage = other.manage()
        manage.set("Compress", True)
        manage.call("Manage", "b", True)
        self.assertEqual(manage.wait_end()[0], "Complete", manage.events)
        self.assertEqual(self.zipped(), 9)

    def test_while_its_session_begins_leaves_none(self):
        for _ in range(10):
            client = self.client()
            client.connection.call_async(NAME, ROOT, FACTORY, "CreateSession", "", (), None, None)
            client.connection.flush()
            client.close()
        wait_for(lambda: not self.bus.sessions(), "the end of all sessions")

    def test_does_not_disturb_another(self):
        self.make_store(9)
        first = self.session().logon("maildir:" + self.mail)
        session, manage = self.start_paused()
        first.client.close()
        wait_for(lambda: self.bus.sessions() == [session.process], "the end of the first")
        session.go_on()
        self.assertEqual(manage.wait_end()[0], "Complete")
        self.assertEqual(self.zipped(), 9)


class AProcessThatIsKilled(bus.Case):
    def test_of_one_session_takes_nobody_else_along(self):
        self.make_store(6)
        other = self.session()
        session, manage = self.start_paused()
        os.kill(session.process, signal.SIGKILL)
        self.assert_error("NoReply", manage.call, "Manage", "b", True)
        self.assertEqual(other.logon(self.address).state, LOGGED_ON)
        self.assertEqual(len(self.bus.brokers()), 1)
        # The store counts as held for some minutes, which loses nothing.
        second = other.manage()
        second.call("Manage", "b", False)
        self.assertEqual(second.wait_end()[0], "Abort")

    def test_the_broker_leaves_the_sessions_to_their_clients(self):
        self.make_store(6)
        session, manage = self.start_paused()
        os.kill(self.bus.brokers()[0], signal.SIGKILL)
        wait_for(lambda: not manage.client.connection.name_has_owner(NAME), "the broker's end")
        other = self.session()
        self.assertEqual(len(self.bus.brokers()), 1)
        session.go_on()
        self.assertEqual(manage.wait_end()[0], "Complete")
        session.call("Release")
        other.call("Release")

    def test_the_bus_ends_the_run_and_frees_the_store(self):
        self.make_store(9)
        session, _ = self.start_paused()
        self.bus.stop()
        session.go_on()
        wait_for(lambda: not self.bus.processes(), "the end of all")
        self.assertLess(self.zipped(), 9)
        again = bus.PrivateBus()
        self.addCleanup(again.remove)
        self.bus.environment, again.environment = again.environment, self.bus.environment
        fresh = bus.Client(again)
        renewed = fresh.create().logon(self.address)
        manage = renewed.manage()
        manage.set("Compress", True)
        manage.call("Manage", "b", False)
        self.assertEqual(manage.wait_end()[0], "Complete", manage.events)
        renewed.call("Release")
        fresh.close()
        wait_for(lambda: not again.processes(), "the end of the other bus's processes")
        self.assertEqual(self.zipped(), 9)


class Termination(bus.Case):
    def test_of_a_session_in_a_run_stops_it_cleanly(self):
        self.make_store(9)
        session, manage = self.start_paused(launch_index=True)
        os.kill(session.process, signal.SIGTERM)
        session.go_on()
        self.assertEqual(manage.wait_end(), ("Abort", "Cancelled"))
        wait_for(lambda: not self.bus.processes(), "the end of all")
        self.assert_free()

    def test_of_the_broker_stops_every_session_and_then_itself(self):
        self.make_store(9)
        session, manage = self.start_paused()
        idle = self.session()
        broker = self.bus.brokers()[0]
        os.kill(broker, signal.SIGTERM)
        wait_for(lambda: idle.process not in self.bus.sessions(), "the end of the idle session")
        self.assertIn(broker, self.bus.brokers())
        session.go_on()
        self.assertEqual(manage.wait_end(), ("Abort", "Cancelled"))
        wait_for(lambda: not self.bus.processes(), "the end of all")
        self.assert_free()


class AStartThatFails(bus.Case):
    environment = {"TMPDIR": "/proc/nowhere"}

    def test_is_told_to_the_client_who_waits(self):
        client = self.client()
        with self.assertRaises(dbus.exceptions.DBusException) as caught:
            client.create()
        self.assertEqual(caught.exception.get_dbus_name(),
                         "org.freedesktop.DBus.Error.Spawn.ChildExited")
        with open(self.bus.errors, encoding="utf-8") as file:
            self.assertIn("trevixci: no private directory for temporary files", file.read())
        wait_for(lambda: not self.bus.processes(), "the end of the broker")


class Many(bus.Case):
    def test_fifty_clients_have_a_session_each(self):
        self.make_store(3)
        clients = [self.client() for _ in range(50)]
        waiting = []
        for client in clients:
            factory = bus.Object(client, NAME, ROOT, FACTORY)
            answers = []
            client.connection.call_async(
                NAME, ROOT, FACTORY, "CreateSession", "", (),
                lambda name, path, answers=answers: answers.append((name, path)), answers.append)
            waiting.append((factory, answers))
        wait_for(lambda: all(answers for _, answers in waiting), "fifty sessions")
        sessions = [bus.Session(factory.client, *answers[0]) for factory, answers in waiting]
        self.assertEqual(len(self.bus.sessions()), 50)
        self.assertEqual(len(self.bus.brokers()), 1)
        done = [session.later("Logon", "s", self.address) for session in sessions]
        wait_for(lambda: all(done), "fifty log-ons")
        self.assertEqual({session.state for session in sessions}, {LOGGED_ON})
        manages = [session.manage() for session in sessions]
        for manage in manages:
            manage.set("Compress", True)
            manage.later("Manage", "b", False)
        ends = [manage.wait_end()[0] for manage in manages]
        # The lock lets one in at a time; all the others are told so, or come when it is free.
        self.assertIn("Complete", ends)
        self.assertLessEqual(set(ends), {"Complete", "Abort"})
        for session in sessions:
            session.later("Release")
        wait_for(lambda: not self.bus.sessions(), "the end of all")
        # Runs that began together have left to the next what each of them was at.
        self.assert_free()
        self.assertEqual(self.zipped(), 3)

    def test_cycles_of_activation_and_exit_lose_no_client(self):
        for _ in range(100):
            client = bus.Client(self.bus)
            session = client.create()
            self.assertEqual(session.get("State"), 0)
            session.call("Release")
            client.close()

    def test_clients_that_come_while_others_go_are_all_served(self):
        workers = [subprocess.Popen([sys.executable, CLIENT, self.bus.address, "40", "cycles"],
                                    stdout=subprocess.PIPE, text=True) for _ in range(3)]
        for worker in workers:
            output, _ = worker.communicate(timeout=bus.SECONDS)
            self.assertEqual((worker.returncode, output), (0, "40\n"))

    def test_sessions_that_come_and_go_leave_nothing_in_the_broker(self):
        stays = self.session()
        broker = self.bus.brokers()[0]

        def descriptors():
            return len(os.listdir(f"/proc/{broker}/fd"))

        before = descriptors()
        for _ in range(20):
            self.session().call("Release")
        wait_for(lambda: self.bus.sessions() == [stays.process], "the end of the others")
        wait_for(lambda: descriptors() == before, "the broker's descriptors")
        with open(f"/proc/{broker}/task/{broker}/children", encoding="ascii") as file:
            self.assertEqual(file.read().split(), [str(stays.process)])


class Options(unittest.TestCase):
    def run_it(self, *arguments):
        return subprocess.run([bus.TREVIXCI, *arguments], text=True, capture_output=True,
                              timeout=bus.SECONDS, check=False, env={"PATH": "/usr/bin:/bin"})

    def test_are_explained_and_checked(self):
        if not bus.TREVIXCI:
            self.skipTest("TREVIXCI does not name the program")
        self.assertIn("--no-idle-exit", self.run_it("--help").stdout)
        self.assertEqual(self.run_it("--version").stdout, "trevixci 4.0.4737\n")
        for wrong in (["--nonsense"], ["--bus"], ["--bus", "other"], ["--owner", "name"]):
            with self.subTest(wrong):
                self.assertEqual(self.run_it(*wrong).returncode, 2)
        without_a_bus = self.run_it("--bus", "session")
        self.assertEqual(without_a_bus.returncode, 1)
        self.assertTrue(without_a_bus.stderr.startswith("trevixci: "))


class WithoutIdleExit(bus.Case):
    def test_the_broker_stays(self):
        broker = subprocess.Popen(
            [bus.TREVIXCI, "--bus", "session", "--no-idle-exit"],
            env={**self.bus.environment, "DBUS_SESSION_BUS_ADDRESS": self.bus.address})
        self.addCleanup(broker.kill)
        client = self.client()
        wait_for(lambda: client.connection.name_has_owner(NAME), "the service")
        client.create().call("Release")
        wait_for(lambda: not self.bus.sessions(), "the end of the session")
        self.assertEqual(self.bus.brokers(), [broker.pid])
        client.create().call("Release")
        broker.terminate()
        self.assertEqual(broker.wait(timeout=bus.SECONDS), 0)


if __name__ == "__main__":
    bus.main()
