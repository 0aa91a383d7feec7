"""Cuts a message into pieces that lie end to end and cover every byte of it.

Written apart from the program's own MIME code, so that a comparison of two messages piece by piece
is an independent judge of what the program changed. Kinds of pieces:

    H   header block of a multipart container, with its blank line
    h   header block of a leaf part        b   body of a leaf part
    d   delimiter line ("--boundary...")   n   the line break in front of it, which belongs to it
    p   preamble or epilogue

A message inside a message is one leaf: nothing in it is ever ours to change.
"""

import email.parser
import email.policy
import re

MAX_DEPTH = 100

_BLANK_LINE = re.compile(rb"(?:\A|\n)\r?\n")
_FIELD_START = re.compile(rb"^[!-9;-~]+[ \t]*:", re.MULTILINE)
_PROTECTED_CONTAINERS = ("multipart/signed", "multipart/encrypted")
_PROTECTED_LEAVES = ("application/pkcs7-mime", "application/x-pkcs7-mime")


class Leaf:
    """A part without children; positions are offsets into the message."""

    def __init__(self, start, body, end, fields, containers, raw):
        self.start = start
        self.body = body
        self.end = end
        self.fields = fields
        self.containers = containers
        self.content_type = fields.get_content_type() if "content-type" in fields else None
        self.transfer_encoding = str(fields.get("content-transfer-encoding", "")).strip().lower()
        self.protected = self._is_protected(raw)

    def _is_protected(self, raw):
        if any(container in _PROTECTED_CONTAINERS for container in self.containers):
            return True
        if self.content_type in _PROTECTED_LEAVES:
            return True
        is_top = not self.containers
        name = str(self.fields.get_filename() or "").lower()
        return is_top and self.content_type == "application/octet-stream" and name.endswith(".p7m")


class Scan:
    """The pieces of one message: tuples (kind, start, end, leaf number or None)."""

    def __init__(self, raw):
        self.raw = raw
        self.pieces = []
        self.leaves = []
        self.top_fields = None
        self._entity(0, len(raw), len(raw), ())

    def _piece(self, kind, start, end, leaf=None):
        self.pieces.append((kind, start, end, leaf))

    def _header_end(self, start, limit):
        """Offset behind the blank line; `limit` when there is none."""
        if self.raw.startswith(b"\n", start, limit):
            return start + 1
        if self.raw.startswith(b"\r\n", start, limit):
            return start + 2
        found = _BLANK_LINE.search(self.raw, start, limit)
        return found.end() if found else limit

    def _entity(self, start, break_start, limit, containers):
        """One part: [start, limit), whose last line break [break_start, limit) is not its own."""
        body = self._header_end(start, limit)
        end = max(body, break_start)
        fields = parse_fields(self.raw[start:body])
        if self.top_fields is None:
            self.top_fields = fields
        boundary = fields.get_boundary() if fields.get_content_maintype() == "multipart" else None
        lines = []
        if boundary and len(containers) < MAX_DEPTH:
            lines = self._delimiters(boundary.encode("utf-8", "surrogateescape"), body, end)
        if not lines:
            leaf = len(self.leaves)
            self.leaves.append(Leaf(start, body, end, fields, containers, self.raw))
            self._piece("h", start, body, leaf)
            self._piece("b", body, end, leaf)
        else:
            self._piece("H", start, body)
            self._children(lines, body, end, containers + (fields.get_content_type(),))
        self._piece("n", end, limit)

    def _children(self, lines, body, end, containers):
        first_break, first_line, _, _ = lines[0]
        self._piece("p", body, first_break)
        self._piece("n", first_break, first_line)
        for index, (_, line, after, closing) in enumerate(lines):
            self._piece("d", line, after)
            if closing:
                self._piece("p", after, end)
                return
            if index + 1 < len(lines):
                next_break, next_line = lines[index + 1][:2]
                self._entity(after, max(after, next_break), next_line, containers)
            else:
                self._entity(after, end, end, containers)

    def _delimiters(self, boundary, start, end):
        """(start of the line break before, start of the line, end of the line, is last) of each."""
        pattern = re.compile(rb"--" + re.escape(boundary) + rb"(--)?[ \t]*(?:\r?\n|\Z)")
        found = []
        at = start
        while True:
            at = self.raw.find(b"--" + boundary, at, end)
            if at < 0:
                return found
            match = pattern.match(self.raw, at, end)
            at_line_start = at == start or self.raw[at - 1:at] == b"\n"
            if not match or not at_line_start:
                at += 2
                continue
            line_break = at
            if at > start:
                has_return = at - 2 >= start and self.raw[at - 2:at] == b"\r\n"
                line_break = at - 2 if has_return else at - 1
            if found:
                line_break = max(line_break, found[-1][2])
            found.append((line_break, at, match.end(), bool(match.group(1))))
            if match.group(1):
                return found
            at = match.end()


def parse_fields(block):
    """The header block as a message object without body; never raises."""
    text = block.decode("ascii", "surrogateescape")
    return email.parser.HeaderParser(policy=email.policy.compat32).parsestr(text)


def field_slices(block):
    """(lower-case name, bytes with continuation lines) of each field, in order."""
    starts = [match.start() for match in _FIELD_START.finditer(block)]
    if not starts:
        return [("", block)] if block.strip() else []
    slices = [("", block[:starts[0]])] if block[:starts[0]].strip() else []
    for start, end in zip(starts, starts[1:] + [len(block)]):
        field = block[start:end].rstrip(b"\r\n")
        slices.append((field.split(b":", 1)[0].strip().lower().decode("ascii"), field))
    return slices


def line_end_style(block):
    """"crlf", "lf", "mixed" or "none"."""
    crlf = block.count(b"\r\n")
    lf = block.count(b"\n") - crlf
    if crlf and lf:
        return "mixed"
    return "crlf" if crlf else "lf" if lf else "none"
