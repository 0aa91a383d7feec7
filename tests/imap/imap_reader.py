"""Reads a mailbox with Python's own IMAP client, into the form that mail_compare.py judges.

A message's place is its folder and UID, which stand for the path and the file of a Maildir: a message
that was not changed keeps both.
"""

import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))

import mail_reader

RESULTS = "Trevix-Results"


def folders(client):
    """Wire names of all folders but the one of the results."""
    _, lines = client.list()
    found = []
    for line in lines:
        name = re.fullmatch(rb'\((.*?)\) ("."|NIL) "?(.*?)"?', line)
        if b"\\Noselect" not in name.group(1):
            found.append(name.group(3).decode())
    return sorted(name for name in found if name != RESULTS)


def _message(folder, head, raw, parser):
    uid = int(re.search(rb"UID (\d+)", head).group(1))
    flags = re.search(rb"FLAGS \((.*?)\)", head).group(1).decode().split()
    message = {
        "path": f"{folder}/{uid}", "folder": folder, "part": "", "name": str(uid),
        "unique": str(uid), "flags": " ".join(sorted(set(flags) - {"\\Recent"})),
        "size_field": None, "wide_field": None, "inode": uid, "ctime_ns": 0, "mode": 0, "uid": 0,
        "gid": 0, "links": 1,
        "mtime_ns": re.search(rb'INTERNALDATE "(.*?)"', head).group(1).decode(),
    }
    message.update(parser.parse(raw))
    return message


def snapshot(client, parser=None):
    """All messages of all folders; of each everything that the server says of it."""
    parser = parser or mail_reader.Parser()
    messages = []
    for folder in folders(client):
        client.select(f'"{folder}"', readonly=True)
        done, answer = client.uid("FETCH", "1:*", "(FLAGS INTERNALDATE BODY.PEEK[])")
        if done != "OK":
            raise RuntimeError(f"{folder}: {answer}")
        for number, part in enumerate(answer):
            if not isinstance(part, tuple):
                continue
            head, raw = part
            # What follows the content belongs to the same message.
            rest = answer[number + 1] if number + 1 < len(answer) else b""
            head += rest if isinstance(rest, bytes) else b""
            messages.append(_message(folder, head, raw, parser))
        client.unselect()
    return {"format": mail_reader.FORMAT, "root": "", "folders": folders(client),
            "messages": messages, "others": []}
