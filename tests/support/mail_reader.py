#!/usr/bin/env python3
"""Reads a tree of Maildirs, independently of the program, and judges what a run did to it.

    mail_reader.py snapshot DIR > before.json
    mail_reader.py compare before.json after.json [--mode any|separate|rollup|unchanged]

A snapshot is plain data (JSON): every message with its place, flags, file attributes, pieces (see
mime_scanner.py) and decoded parts, and every other file by name. The judging is in mail_compare.py.
"""

import argparse
import base64
import email
import email.header
import hashlib
import io
import json
import os
import quopri
import re
import stat
import sys
import zipfile

if __package__ in (None, ""):
    sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import mail_compare
import mime_scanner

FORMAT = 1
MAX_MEMBER_BYTES = 512 * 1024 * 1024
PARTS_OF_A_MAILDIR = ("new", "cur", "tmp")
# Fields that describe the content of a part; they may change when the content does.
CONTENT_FIELDS = re.compile(
    r"content-(type|disposition|transfer-encoding|md5|length|language|base|location|duration|"
    r"description)$|lines$|mime-version$|x-apple-|x-mac-")


def digest(data):
    return hashlib.sha256(data).hexdigest()


def decode_name(fields):
    """The file name of a part as a person reads it, or None."""
    try:
        name = fields.get_filename()
    except (ValueError, LookupError, TypeError):
        return None
    if name is None:
        return None
    try:
        name = str(email.header.make_header(email.header.decode_header(name)))
    except (ValueError, LookupError, email.errors.HeaderParseError):
        pass
    return name.encode("utf-8", "replace").decode("utf-8")


def decode_body(body, transfer_encoding):
    """The content of a part by its transfer encoding, lenient as mail programs are."""
    if transfer_encoding == "base64":
        clean = re.sub(rb"[^A-Za-z0-9+/]", b"", body.split(b"=", 1)[0])
        clean = clean[:len(clean) - 1] if len(clean) % 4 == 1 else clean
        return base64.b64decode(clean + b"=" * (-len(clean) % 4))
    if transfer_encoding == "quoted-printable":
        return quopri.decodestring(body)
    return body


def package_leaves(raw):
    """The decoded leaves as Python's email package sees them; None for a message in a message."""
    leaves = []

    def walk(part):
        if part.get_content_maintype() != "message" and part.is_multipart():
            for child in part.get_payload():
                walk(child)
        elif part.get_content_maintype() == "message":
            leaves.append(None)
        else:
            leaves.append(part.get_payload(decode=True))

    try:
        walk(email.message_from_bytes(raw))
    except Exception:  # the package itself stumbles over some broken mail; the scan still counts
        return []
    return leaves


def read_archive(data):
    """The members of a zip archive with their digests, or None when it is not one."""
    if not data.startswith((b"PK\x03\x04", b"PK\x05\x06")):
        return None
    members = []
    try:
        with zipfile.ZipFile(io.BytesIO(data)) as archive:
            if sum(info.file_size for info in archive.infolist()) > MAX_MEMBER_BYTES:
                return {"error": "too large to look into", "members": []}
            for info in archive.infolist():
                content = archive.read(info)  # checks the CRC
                members.append({"name": info.filename, "size": len(content),
                                "sha": digest(content)})
            bad = archive.testzip()
            return {"error": f"bad member {bad}" if bad else None, "members": members}
    except Exception as error:
        return {"error": f"{type(error).__name__}: {error}", "members": members}


class Parser:
    """Parses message bytes; remembers what it has parsed, by digest."""

    def __init__(self):
        self._known = {}

    def parse(self, raw):
        key = digest(raw)
        if key not in self._known:
            self._known[key] = self._parse(raw, key)
        return self._known[key]

    def _parse(self, raw, key):
        scan = mime_scanner.Scan(raw)
        top_block = raw[:scan.pieces[0][2]]
        top_fields = mime_scanner.field_slices(top_block)
        lasting = [field for name, field in top_fields if not CONTENT_FIELDS.match(name)]
        decoded = package_leaves(raw)
        agree = len(decoded) == len(scan.leaves)
        leaves = [self._leaf(raw, leaf, decoded[number] if agree else None)
                  for number, leaf in enumerate(scan.leaves)]
        top_type = scan.top_fields.get_content_type()
        return {
            "sha": key,
            "size": len(raw),
            "wide_size": len(raw) + raw.count(b"\n") - raw.count(b"\r\n"),
            "identity": digest(b"\n".join(lasting)),
            "header_sha": digest(top_block),
            "message_id": str(scan.top_fields.get("message-id", "")).strip(),
            "subject": str(scan.top_fields.get("subject", "")).encode("utf-8", "replace").decode(),
            "content_type": top_type,
            "protected": top_type in ("multipart/signed", "multipart/encrypted")
                         or (len(leaves) == 1 and leaves[0]["protected"]),
            "parsers_agree": agree,
            "pieces": [[kind, end - start, digest(raw[start:end])[:32], leaf]
                       for kind, start, end, leaf in scan.pieces if end > start or kind in "hb"],
            "leaves": leaves,
        }

    @staticmethod
    def _leaf(raw, leaf, by_package):
        header = raw[leaf.start:leaf.body]
        body = raw[leaf.body:leaf.end]
        try:
            own = decode_body(body, leaf.transfer_encoding)
        except ValueError:
            own = body
        content = own if by_package is None else by_package
        disposition = str(leaf.fields.get("content-disposition", "")).split(";")[0]
        return {
            "name": decode_name(leaf.fields),
            "type": leaf.content_type,
            "disposition": disposition.strip().lower(),
            "encoding": leaf.transfer_encoding,
            "content_id": str(leaf.fields.get("content-id", "")).strip(),
            "containers": list(leaf.containers),
            "protected": leaf.protected,
            "size": len(content),
            "sha": digest(content),
            "other_sha": digest(own),
            "header_lines": mime_scanner.line_end_style(header),
            "body_lines": mime_scanner.line_end_style(body),
            "lasting": [[name, digest(field)[:32]]
                        for name, field in mime_scanner.field_slices(header)
                        if not CONTENT_FIELDS.match(name)],
            "zip": read_archive(content),
        }


def split_file_name(name):
    """Base name, fields (S=, W=, ...) and flags of a Maildir file name."""
    base, marker, flags = name.partition(":2,")
    unique, *pairs = base.split(",")
    fields = dict(pair.split("=", 1) for pair in pairs if "=" in pair)
    return unique, fields, "".join(sorted(flags)) if marker else None


def find_folders(root):
    """Relative paths of all Maildirs in the tree, "" for the root itself."""
    folders = []
    for path, names, _ in os.walk(root):
        names.sort()
        if "cur" in names and "new" in names:
            folders.append(os.path.relpath(path, root) if path != root else "")
            names[:] = [name for name in names if name not in PARTS_OF_A_MAILDIR]
    return sorted(folders)


def _message(root, folder, part, name, parser):
    path = os.path.join(root, folder, part, name)
    with open(path, "rb") as file:
        status = os.fstat(file.fileno())
        raw = file.read()
    unique, fields, flags = split_file_name(name)
    message = {
        "path": os.path.relpath(path, root), "folder": folder, "part": part, "name": name,
        "unique": unique, "flags": flags, "size_field": fields.get("S"),
        "wide_field": fields.get("W"), "inode": status.st_ino, "mtime_ns": status.st_mtime_ns,
        "ctime_ns": status.st_ctime_ns, "mode": stat.S_IMODE(status.st_mode),
        "uid": status.st_uid, "gid": status.st_gid, "links": status.st_nlink,
    }
    message.update(parser.parse(raw))
    return message


def snapshot(root, parser=None):
    """Everything about the tree of Maildirs as plain data; calls may share a `parser`."""
    root = os.path.abspath(root)
    parser = parser or Parser()
    folders = find_folders(root)
    messages = []
    message_paths = set()
    for folder in folders:
        for part in ("new", "cur"):
            for name in sorted(os.listdir(os.path.join(root, folder, part))):
                path = os.path.join(root, folder, part, name)
                if name.startswith(".") or not stat.S_ISREG(os.lstat(path).st_mode):
                    continue
                message_paths.add(path)
                messages.append(_message(root, folder, part, name, parser))
    others = sorted(os.path.relpath(os.path.join(path, name), root)
                    for path, _, names in os.walk(root) for name in names
                    if os.path.join(path, name) not in message_paths)
    return {"format": FORMAT, "root": root, "folders": folders, "messages": messages,
            "others": others}


compare = mail_compare.compare


def read_leaf(root, message, number):
    """The decoded bytes of one leaf of a message of a snapshot, read from the tree."""
    with open(os.path.join(root, message["path"]), "rb") as file:
        raw = file.read()
    leaf = mime_scanner.Scan(raw).leaves[number]
    return decode_body(raw[leaf.body:leaf.end], leaf.transfer_encoding)


def main(arguments=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    commands = parser.add_subparsers(dest="command", required=True)
    snap = commands.add_parser("snapshot", help="describe a tree of Maildirs as JSON")
    snap.add_argument("dir")
    comp = commands.add_parser("compare", help="list what a run did wrong")
    comp.add_argument("before")
    comp.add_argument("after")
    comp.add_argument("--mode", default="any", choices=mail_compare.MODES)
    options = parser.parse_args(arguments)
    if options.command == "snapshot":
        json.dump(snapshot(options.dir), sys.stdout, indent=1)
        print()
        return 0
    snapshots = []
    for path in (options.before, options.after):
        with open(path, encoding="utf-8") as file:
            snapshots.append(json.load(file))
    violations = compare(*snapshots, options.mode)
    for violation in violations:
        print(violation)
    return 1 if violations else 0


if __name__ == "__main__":
    sys.exit(main())
