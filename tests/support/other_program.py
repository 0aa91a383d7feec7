"""Another mail program at work: changes one message of a store, found by its Message-ID.

    other_program.py STORE ACTION MESSAGE_ID [KNOWN_PATH]

KNOWN_PATH is the file as the program listed it earlier; when that is gone it looks for the message
again, as mail programs do. Actions: flag, read (move from new to cur), move, delete, deliver.
"""

import os
import sys

MOVE_TARGET = ".Archive"
DELIVERED = b"Message-ID: <delivered@example.org>\nSubject: just arrived\n\nHello.\n"


def find(store, message_id, known_path):
    if known_path and os.path.exists(os.path.join(store, known_path)):
        return os.path.join(store, known_path)
    for path, folders, files in os.walk(store):
        if os.path.basename(path) not in ("new", "cur"):
            continue
        for name in sorted(files):
            try:
                with open(os.path.join(path, name), "rb") as file:
                    if message_id.encode() in file.read(4096):
                        return os.path.join(path, name)
            except FileNotFoundError:
                continue
    return None


def change(store, action, message_id, known_path=None):
    """True when the change was made."""
    if action == "deliver":
        staged = os.path.join(store, "tmp", "1700000000.delivered.host")
        with open(staged, "wb") as file:
            file.write(DELIVERED)
        os.utime(staged, (1_700_000_000, 1_700_000_000))
        os.rename(staged, os.path.join(store, "new", "1700000000.delivered.host"))
        return True
    for _ in range(3):
        path = find(store, message_id, known_path)
        if path is None:
            return False
        try:
            _apply(store, action, path)
            return True
        except FileNotFoundError:
            continue  # it was replaced under our hands: look again
    return False


def _apply(store, action, path):
    folder, name = os.path.split(path)
    base, _, flags = name.partition(":2,")
    if action == "delete":
        os.unlink(path)
    elif action == "flag":
        os.rename(path, os.path.join(os.path.dirname(folder), "cur",
                                     base + ":2," + "".join(sorted(set(flags) | set("FT")))))
    elif action == "read":
        os.rename(path, os.path.join(os.path.dirname(folder), "cur",
                                     base + ":2," + "".join(sorted(set(flags) | set("S")))))
    elif action == "move":
        os.rename(path, os.path.join(store, MOVE_TARGET, os.path.basename(folder), name))
    else:
        raise ValueError(action)


if __name__ == "__main__":
    sys.exit(0 if change(*sys.argv[1:]) else 3)
