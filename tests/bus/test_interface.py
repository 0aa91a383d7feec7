"""What the service shows on the bus, and what it refuses."""

import os
import xml.etree.ElementTree

import dbus

import bus
from bus import DETAILS, FACTORY, INDEX, LOGGED_ON, MANAGE, NAME, NO_SESSION, ROOT, SESSION

XML = os.path.join(bus.REPOSITORY, "src", "platform", "dbus", NAME + ".xml")


def members(interface):
    """The members of an interface element, in an order of their own."""
    found = []
    for member in interface:
        arguments = [(a.get("name"), a.get("type"), a.get("direction", "out"))
                     for a in member.iter("arg")]
        notes = sorted((a.get("name"), a.get("value")) for a in member.iter("annotation"))
        found.append((member.tag, member.get("name"), member.get("type"), member.get("access"),
                      arguments, notes))
    return sorted(found, key=lambda member: member[:2])


def interfaces(text):
    return {i.get("name"): members(i)
            for i in xml.etree.ElementTree.fromstring(text).iter("interface")}


class Introspection(bus.Case):
    def introspect(self, client, name, path):
        return interfaces(client.call(name, path, "org.freedesktop.DBus.Introspectable",
                                      "Introspect"))

    def test_is_what_the_installed_file_says(self):
        with open(XML, encoding="utf-8") as file:
            stated = interfaces(file.read())
        self.assertEqual(set(stated), {FACTORY, SESSION, DETAILS, MANAGE, INDEX})
        self.make_store(1)
        session = self.logged_on()
        client = session.client
        for interface, name, path in ((FACTORY, NAME, ROOT),
                                      (SESSION, session.name, session.path),
                                      (DETAILS, session.name, session.path),
                                      (MANAGE, session.name, session.get("Manage")),
                                      (INDEX, session.name, session.get("Index"))):
            with self.subTest(interface):
                self.assertEqual(self.introspect(client, name, path)[interface],
                                 stated[interface])

    def test_is_open_to_everybody(self):
        session = self.session()
        other = self.client()
        self.assertIn(SESSION, self.introspect(other, session.name, session.path))
        other.call(session.name, session.path, "org.freedesktop.DBus.Peer", "Ping")


class Properties(bus.Case):
    def test_are_neutral_before_a_logon(self):
        session = self.session()
        self.assertEqual(dict(session.get_all()),
                         {"Server": "", "Alias": "", "Profile": "", "LastError": "",
                          "Index": "/", "Manage": "/", "State": NO_SESSION})

    def test_come_back_as_they_were_set(self):
        self.make_store(1)
        session = self.logged_on()
        values = {session: ("Server", "Alias", "Profile"),
                  session.index(): ("TargetStoreIDs", "UpdateStoreIDs")}
        for thing, names in values.items():
            for name in names:
                thing.set(name, f"\u00e4 {name}")
                self.assertEqual(thing.get(name), f"\u00e4 {name}")
        for thing, names in ((session.manage(), ("Cancel", "Compress", "HTML")),
                             (session.index(), ("Cancel", "Refresh", "Regenerate"))):
            for name in names:
                for value in (True, False):
                    thing.set(name, value)
                    self.assertEqual(thing.get(name), value, name)

    def test_that_are_for_writing_read_as_nothing(self):
        self.make_store(1)
        session = self.logged_on()
        manage, index = session.manage(), session.index()
        manage.set("FolderIDs", "x,all")
        index.set("OffLine", True)
        self.assertEqual(manage.get("FolderIDs"), "")
        self.assertEqual(index.get("OffLine"), False)
        self.assertEqual(len(manage.get_all()), 6)
        self.assertEqual(len(index.get_all()), 7)

    def test_refuse_wrong_types(self):
        self.make_store(1)
        session = self.logged_on()
        manage, index = session.manage(), session.index()
        for thing, name, value in ((session, "Server", True), (session, "Profile", dbus.Int32(1)),
                                   (manage, "Cancel", "yes"), (manage, "Compress", dbus.Int32(1)),
                                   (manage, "FolderIDs", False),
                                   (index, "TargetStoreIDs", dbus.Array(["a"], signature="s")),
                                   (index, "Regenerate", dbus.Struct((1, "x")))):
            with self.subTest(name):
                self.assert_error("InvalidArgs", thing.set, name, value)
        self.assertEqual(session.state, LOGGED_ON)

    def test_that_are_read_only_cannot_be_written(self):
        self.make_store(1)
        session = self.logged_on()
        for thing, name, value in ((session, "State", dbus.Int32(1)), (session, "LastError", "x"),
                                   (session, "Manage", dbus.ObjectPath("/x")),
                                   (session.manage(), "InProcess", True),
                                   (session.manage(), "SkipIndex", True),
                                   (session.index(), "InProcess", True)):
            with self.subTest(name):
                self.assert_error("PropertyReadOnly", thing.set, name, value)

    def test_that_do_not_exist_are_unknown(self):
        session = self.session()
        self.assert_error("UnknownProperty", session.get, "Nonsense")
        self.assert_error("UnknownProperty", session.set, "Nonsense", True)


class Methods(bus.Case):
    def test_refuse_wrong_arguments(self):
        self.make_store(1)
        session = self.logged_on()
        for thing, method, signature, arguments in (
                (session, "Logon", "", ()), (session, "Logon", "b", (True,)),
                (session, "Logon", "ss", ("a", "b")), (session, "EndSession", "s", ("a",)),
                (session.manage(), "Manage", "", ()), (session.manage(), "Manage", "s", ("yes",)),
                (session.index(), "Index", "i", (1,))):
            with self.subTest(method + signature):
                self.assert_error("InvalidArgs", thing.call, method, signature, *arguments)
        self.assertEqual(session.state, LOGGED_ON)

    def test_that_do_not_exist_are_unknown(self):
        session = self.session()
        self.assert_error("UnknownMethod", session.call, "Nonsense")
        self.assert_error("UnknownMethod", session.call, "StartManage")

    def test_of_other_objects_are_unknown(self):
        session = self.session()
        client = session.client
        self.assert_error("UnknownObject", client.call, session.name, ROOT + "/Manage/1", MANAGE,
                          "Manage", "b", False)
        self.assert_error("UnknownObject", client.call, session.name, ROOT + "/Nonsense", SESSION,
                          "EndSession")
        self.assert_error("UnknownObject", client.call, NAME, session.path, SESSION, "EndSession")
        self.assert_error("UnknownMethod", client.call, session.name, session.path, FACTORY,
                          "CreateSession")

    def test_bytes_that_are_no_message_end_nothing_but_their_sender(self):
        session = self.session()
        client = self.client()
        self.assert_error("AccessDenied", client.call, session.name, session.path, SESSION,
                          "Logon", "ayv", dbus.ByteArray(b"\0" * 100000), "x")
        self.assertEqual(session.state, NO_SESSION)


class Factory(bus.Case):
    def test_states_its_version(self):
        client = self.client()
        self.assertEqual(client.call(NAME, ROOT, bus.PROPERTIES, "Get", "ss", FACTORY, "Version"),
                         "4.0.4737")

    def test_gives_each_session_a_process_of_its_own(self):
        client = self.client()
        one, two = client.create(), client.create()
        self.assertNotEqual(one.process, two.process)
        self.assertCountEqual(self.bus.sessions(), [one.process, two.process])
        self.assertEqual(len(self.bus.brokers()), 1)
        self.assertEqual(one.path, ROOT + "/Session")

    def test_a_session_serves_its_owner_alone(self):
        self.make_store(1)
        session = self.logged_on()
        other = self.client()
        for interface, method, signature, arguments in (
                (SESSION, "EndSession", "", ()), (SESSION, "Release", "", ()),
                (bus.PROPERTIES, "Get", "ss", (SESSION, "State")),
                (bus.PROPERTIES, "Set", "ssv", (SESSION, "Server", "x")),
                (bus.PROPERTIES, "GetAll", "s", (SESSION,))):
            with self.subTest(method):
                self.assert_error("AccessDenied", other.call, session.name, session.path,
                                  interface, method, signature, *arguments)
        self.assert_error("AccessDenied", other.call, session.name, session.get("Manage"), MANAGE,
                          "Manage", "b", True)
        self.assertEqual(session.state, LOGGED_ON)
        self.assertEqual(session.get("Server"), "")

    def test_a_shared_session_serves_the_holders_user_and_tells_the_holder(self):
        self.make_store(3)
        holder, maker, caller = self.client(), self.client(), self.client()
        made = maker.create_for(holder.name)
        maker.close()
        seen = bus.Session(holder, made.name, made.path)
        bus.Session(caller, made.name, made.path).logon(self.address)
        told = seen.manage()
        heard = bus.Session(caller, made.name, made.path).manage()
        heard.call("Manage", "b", False)
        self.assertEqual(told.wait_end()[0], "Complete")
        self.assertEqual(heard.events, [])
        holder.close()
        bus.wait_for(lambda: not self.bus.sessions(), "the end of the session")

    def test_a_holder_is_somebody_on_the_bus(self):
        client = self.client()
        for holder in ("", NAME, "org.freedesktop.DBus", ":1.99999", "x y"):
            with self.subTest(holder):
                self.assert_error("InvalidArgs", client.create_for, holder)
        self.assertEqual(self.bus.sessions(), [])


class Logon(bus.Case):
    def test_without_a_name_says_so(self):
        session = self.session().logon("")
        self.assertEqual(session.get("LastError"), "No profile or server/alias provided")
        self.assertEqual(session.state, NO_SESSION)
        self.assertEqual(session.get("Index"), "/")

    def test_that_fails_says_which_name_and_another_may_follow(self):
        session = self.session().logon("maildir:/nowhere")
        self.assertEqual(session.get("LastError"), "Invalid logon maildir:/nowhere")
        self.assertEqual(session.state, NO_SESSION)
        self.make_store(1)
        session.logon(self.address)
        self.assertEqual(session.state, LOGGED_ON)
        self.assertTrue(session.get("LastError").startswith("Successful logon "))

    def test_takes_the_profile_before_server_and_alias(self):
        self.make_store(1)
        session = self.session()
        session.set("Server", "imap.example.org")
        session.set("Alias", "ann")
        session.set("Profile", self.address)
        session.logon("")
        self.assertEqual(session.state, LOGGED_ON)

    def test_with_server_and_alias_names_both(self):
        session = self.session()
        session.set("Server", "imap.example.org")
        session.set("Alias", "ann")
        session.logon("")
        self.assertEqual(session.get("LastError"), "Invalid logon imap.example.org\nann")

    def test_again_replaces_both_objects_and_a_failed_one_neither(self):
        self.make_store(1)
        session = self.logged_on()
        first = (session.get("Manage"), session.get("Index"))
        session.logon("maildir:/nowhere")
        self.assertEqual((session.get("Manage"), session.get("Index")), first)
        session.manage().set("Cancel", True)
        session.logon(self.address)
        second = (session.get("Manage"), session.get("Index"))
        self.assertFalse(set(first) & set(second))
        self.assertEqual(session.manage().get("Cancel"), False)
        self.assert_error("UnknownObject", session.client.call, session.name, first[0], MANAGE,
                          "Manage", "b", False)

    def test_needs_a_new_session_after_the_end_of_one(self):
        self.make_store(1)
        session = self.logged_on()
        session.call("EndSession")
        self.assertEqual(session.state, NO_SESSION)
        session.logon(self.address)
        self.assertEqual(session.get("LastError"), "Invalid logon " + self.address)
        self.assertEqual(session.state, NO_SESSION)
        session.call("EndSession")


if __name__ == "__main__":
    bus.main()
