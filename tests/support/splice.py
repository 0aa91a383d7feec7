"""Replaces and removes parts of a message by splicing, for the tests of the mail reader."""

import base64
import io
import zipfile

import mime_scanner


def make_zip(files):
    """The bytes of an archive of (name, content) pairs."""
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, content in files:
            archive.writestr(zipfile.ZipInfo(name), content, zipfile.ZIP_DEFLATED)
    return buffer.getvalue()


def archive_part(name, data, line_end=b"\n", extra=b""):
    """Header block and body of an attached archive, without the line break at the end."""
    text = base64.b64encode(data)
    lines = line_end.join(text[at:at + 76] for at in range(0, len(text), 76))
    quoted = name.encode("utf-8")
    return (b'Content-Type: application/zip; name="' + quoted + b'"' + line_end
            + b'Content-Disposition: attachment; filename="' + quoted + b'"' + line_end
            + b"Content-Transfer-Encoding: base64" + line_end + extra + line_end + lines)


def replace_leaf(raw, number, part):
    """The message with header block and body of one leaf replaced by `part`."""
    leaf = mime_scanner.Scan(raw).leaves[number]
    return raw[:leaf.start] + part + raw[leaf.end:]


def remove_leaf(raw, number):
    """The message without one leaf, its delimiter line and the line break in front of that."""
    pieces = mime_scanner.Scan(raw).pieces
    at = next(i for i, piece in enumerate(pieces) if piece[0] == "h" and piece[3] == number)
    assert pieces[at - 1][0] == "d" and pieces[at - 2][0] == "n"
    return raw[:pieces[at - 2][1]] + raw[pieces[at + 1][2]:]
