"""Judges two snapshots of a mail store (see mail_reader.py): what a run may do, and no more.

The rules, by the names that the findings begin with:
    I1  every attachment is still there, byte for byte, by itself or as a member of a new archive
    I2  every byte outside the replaced and removed parts is the same
    I3  no message is missing or there twice
    I4  flags, received time, owner, mode, new or cur stay; S= and W= in file names are true
    I6  signed and encrypted parts are untouched
    I9  (mode "unchanged") no message file was written, renamed or touched
    Z   each new archive is sound, named as it should be and holds exactly what it replaced
"""

import collections
import os
import re

MODES = ("any", "separate", "rollup", "unchanged")
EXCLUDED = ".zip:.exe:.cab:.vcf:.vcs:.ics:.xnk:.url:.lnk:.jpeg:.jpg:.gif:.efx:.wav"
BLOCKED = (".ade:.adp:.app:.bas:.bat:.cer:.chm:.cmd:.com:.cpl:.crt:.csh:.exe:.fxp:.hlp:.hta:.inf:"
           ".ins:.isp:.js:.jse:.ksh:.lnk:.mda:.mdb:.mde:.mdt:.mdw:.mdz:.msc:.msi:.msp:.mst:.ops:"
           ".pcd:.pif:.prf:.prg:.pst:.reg:.scf:.scr:.sct:.shb:.shs:.url:.vb:.vbe:.vbs:.wsc:.wsf:"
           ".wsh:.xsl")
SKIPPED_EXTENSIONS = frozenset((EXCLUDED + ":" + BLOCKED).split(":"))
PLAIN_NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9 _.()-]{0,60}\Z")
EMPTY_SHA = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"
ATTRIBUTES = ("part", "flags", "mtime_ns", "mode", "uid", "gid")


def extension(name):
    """With its dot, in lower case; a name without a dot is its own extension."""
    return "." + name.rsplit(".", 1)[-1].lower()


def base_name(name):
    return name.rsplit(".", 1)[0]


def compare(before, after, mode="any", min_size=0, complete=False, allow_tmp=False):
    """The list of violations, empty when all is well.

    `min_size` is the threshold of the run. With `complete`, every attachment that surely qualifies
    must have been zipped. With `allow_tmp`, new files in tmp/ are no violation.
    """
    if mode not in MODES:
        raise ValueError(f"unknown mode {mode}")
    if mode == "unchanged":
        return _unchanged(before, after)
    judge = _Judge(mode, min_size, complete)
    pairs = judge.pair_all(before["messages"], after["messages"])
    for old, new in pairs:
        judge.pair(old, new)
    judge.all_attachments(before["messages"], after["messages"])
    if not allow_tmp:
        known = set(before["others"])
        for path in after["others"]:
            if path not in known and os.path.basename(os.path.dirname(path)) == "tmp":
                judge.add("I3", path, "temporary file left behind")
    return judge.violations


def _unchanged(before, after):
    violations = []
    old = {message["path"]: message for message in before["messages"]}
    new = {message["path"]: message for message in after["messages"]}
    for path in sorted(old.keys() - new.keys()):
        violations.append(f"I9 {path}: gone or renamed")
    for path in sorted(new.keys() - old.keys()):
        violations.append(f"I9 {path}: new")
    for path in sorted(old.keys() & new.keys()):
        for key in ("sha", "inode", "ctime_ns", "links") + ATTRIBUTES:
            if old[path][key] != new[path][key]:
                violations.append(f"I9 {path}: {key} was {old[path][key]}, is {new[path][key]}")
    return violations


def align(old, new):
    """How the new message came from the old one, piece by piece.

    A list of ("replaced", old leaf, new leaf), ("removed", old leaf, None) and ("emptied", old
    leaf, new leaf), or None when bytes outside of such parts differ.
    """
    a, b = old["pieces"], new["pieces"]
    dead_ends = set()
    # Depth first; each entry is a place in both messages and the edits that led there.
    open_places = [(0, 0, ())]
    while open_places:
        i, j, edits = open_places.pop()
        while i < len(a) and j < len(b) and _same(a[i], b[j]) and not _is_part(a, i):
            i, j = i + 1, j + 1
        if i == len(a) and j == len(b):
            return list(edits)
        if (i, j) in dead_ends:
            continue
        dead_ends.add((i, j))
        open_places.extend(reversed(_steps(old, new, i, j, edits)))
    return None


def _same(one, two):
    return one[:3] == two[:3]


def _is_part(pieces, at):
    return pieces[at][0] == "h"


def _steps(old, new, i, j, edits):
    """The ways on from a place where the messages may differ, the likeliest first."""
    a, b = old["pieces"], new["pieces"]
    steps = []
    last_resort = []
    both_parts = i < len(a) and j < len(b) and _is_part(a, i) and _is_part(b, j)
    if both_parts:
        if _same(a[i], b[j]) and _same(a[i + 1], b[j + 1]):
            steps.append((i + 2, j + 2, edits))
        old_leaf, new_leaf = old["leaves"][a[i][3]], new["leaves"][b[j][3]]
        if not _same(a[i + 1], b[j + 1]):
            if new_leaf["zip"] is not None:
                # An archive that does not hold the part may well be an older attachment.
                likely = _holds(new_leaf["zip"], old_leaf)
                (steps if likely else last_resort).append(
                    (i + 2, j + 2, edits + (("replaced", a[i][3], b[j][3]),)))
            elif new_leaf["sha"] == EMPTY_SHA and old_leaf["sha"] != EMPTY_SHA:
                steps.append((i + 2, j + 2, edits + (("emptied", a[i][3], b[j][3]),)))
    # A removed part takes its delimiter line along, and one of the line breaks around it.
    if i < len(a):
        for length, leaf in _removals(a, i):
            steps.append((i + length, j, edits + (("removed", leaf, None),)))
    return steps + last_resort


def _holds(archive, leaf):
    shas = (leaf["sha"], leaf["other_sha"])
    return any(member["sha"] in shas for member in archive["members"])


def _removals(pieces, i):
    kinds = "".join(piece[0] for piece in pieces[i:i + 4])
    if kinds == "ndhb":
        return [(4, pieces[i + 2][3])]
    if kinds == "dhbn":
        return [(4, pieces[i + 1][3])]
    # The line break and delimiter line in front were found equal to those of the next part.
    if kinds == "hbnd":
        return [(4, pieces[i][3])]
    if kinds.startswith("dhb"):  # an empty last part owns no line break
        return [(3, pieces[i + 1][3])]
    return []


class _Judge:
    def __init__(self, mode, min_size, complete):
        self.mode = mode
        self.min_size = min_size
        self.complete = complete
        self.violations = []

    def add(self, rule, path, text):
        self.violations.append(f"{rule} {path}: {text}")

    # -- which message became which -------------------------------------------------------------

    def pair_all(self, before, after):
        pairs = []
        left_new = {message["path"]: message for message in after}
        left_old = []
        for message in before:
            same = left_new.get(message["path"])
            if same is not None and same["sha"] == message["sha"]:
                pairs.append((message, left_new.pop(message["path"])))
            else:
                left_old.append(message)
        groups = collections.defaultdict(list)
        for message in left_new.values():
            groups[(message["folder"], message["identity"])].append(message)
        for message in left_old:
            candidates = groups[(message["folder"], message["identity"])]
            if candidates:
                best = max(candidates, key=lambda new: _likeness(message, new))
                candidates.remove(best)
                pairs.append((message, best))
            else:
                self.add("I3", message["path"], "message is missing")
        known = {message["identity"] for message in before}
        for group in groups.values():
            for message in group:
                text = "is there twice or moved" if message["identity"] in known else "is foreign"
                self.add("I3", message["path"], "message " + text)
        return pairs

    # -- one message ----------------------------------------------------------------------------

    def pair(self, old, new):
        for key in ATTRIBUTES:
            if old[key] != new[key]:
                self.add("I4", old["path"], f"{key} was {old[key]}, is {new[key]}")
        if old["sha"] == new["sha"]:
            if old["path"] != new["path"]:
                self.add("I3", old["path"], f"renamed to {new['path']} though unchanged")
            self._untreated(old, old, range(len(old["leaves"])))
            return
        self._name_fields(old, new)
        if old["protected"]:
            self.add("I6", old["path"], "signed or encrypted message was changed")
            return
        edits = align(old, new)
        if edits is None:
            self.add("I2", old["path"], f"bytes outside of replaced parts differ ({new['path']}): "
                     + _first_difference(old, new))
            return
        self._edits(old, new, edits)
        touched = {edit[1] for edit in edits}
        self._untreated(old, new, [n for n in range(len(old["leaves"])) if n not in touched])

    def _name_fields(self, old, new):
        path = new["path"]
        for key, value in (("size_field", "size"), ("wide_field", "wide_size")):
            if (old[key] is None) != (new[key] is None):
                self.add("I4", path, f"{key} came or went")
            elif new[key] is not None and new[key] != str(new[value]):
                self.add("I4", path, f"{key} says {new[key]}, is {new[value]}")
        if old["unique"] == new["unique"]:
            self.add("I4", path, "changed bytes under the old unique name")

    def _edits(self, old, new, edits):
        path = old["path"]
        gone = []
        archives = []
        for kind, old_number, new_number in edits:
            leaf = old["leaves"][old_number]
            gone.append(leaf)
            if leaf["protected"]:
                self.add("I6", path, f"protected part {leaf['name']} was changed")
            self._must_qualify(path, leaf)
            if kind == "replaced":
                archive = new["leaves"][new_number]
                archives.append(archive)
                self._replacement(path, leaf, archive)
        members = [member for archive in archives for member in archive["zip"]["members"]]
        self._contents(path, gone, members)
        self._shape(path, edits, gone, archives)

    def _contents(self, path, gone, members):
        left = list(members)
        for leaf in gone:
            shas = (leaf["sha"], leaf["other_sha"])
            found = [member for member in left if member["sha"] in shas]
            if not found:
                self.add("I1", path, f"content of {leaf['name']} is in no new archive")
                continue
            named = [member for member in found if _member_name_fits(leaf["name"], member["name"])]
            left.remove((named or found)[0])
            if not named:
                self.add("Z", path, f"{leaf['name']} is archived as {found[0]['name']}")
        for member in left:
            self.add("I1", path, f"archive member {member['name']} was no attachment here")

    def _shape(self, path, edits, gone, archives):
        if self.mode == "separate":
            if len(archives) != len(gone):
                self.add("Z", path, "parts were removed in separate mode")
            for archive in archives:
                if len(archive["zip"]["members"]) != 1:
                    self.add("Z", path, f"{archive['name']} has not one member")
        if self.mode == "rollup":
            if len(archives) != 1:
                self.add("Z", path, f"{len(archives)} archives of one rollup")
            elif edits[0][0] != "replaced":
                self.add("Z", path, "the rollup is not in the place of its first attachment")

    def _replacement(self, path, leaf, archive):
        """What a part that became an archive must look like."""
        content = archive["zip"]
        if content["error"]:
            self.add("Z", path, f"{archive['name']} is unsound: {content['error']}")
        if archive["type"] != "application/zip" or archive["encoding"] != "base64":
            self.add("Z", path, f"{archive['name']} is {archive['type']}, {archive['encoding']}")
        if archive["disposition"] != (leaf["disposition"] or "attachment"):
            self.add("I2", path, f"disposition of {leaf['name']} became {archive['disposition']}")
        if leaf["name"] and PLAIN_NAME.match(leaf["name"]):
            wanted = base_name(leaf["name"]) + ".zip"
            # Readers differ in the blanks around encoded words.
            if archive["name"].replace(" ", "") != wanted.replace(" ", ""):
                self.add("Z", path, f"{leaf['name']} became {archive['name']}, not {wanted}")
        elif not (archive["name"] or "").endswith(".zip"):
            self.add("Z", path, f"archive is named {archive['name']}")
        if leaf["lasting"] != [field for field in archive["lasting"]]:
            self.add("I2", path, f"other header fields of {leaf['name']} changed")
        if leaf["header_lines"] != "mixed" and archive["header_lines"] != leaf["header_lines"]:
            self.add("I2", path, f"line ends of {leaf['name']} were {leaf['header_lines']}, are "
                     + archive["header_lines"])
        if archive["body_lines"] not in ("none", archive["header_lines"]):
            self.add("I2", path, f"line ends in {archive['name']} are {archive['body_lines']}")

    def _must_qualify(self, path, leaf):
        name = leaf["name"] or ""
        if leaf["size"] < self.min_size:
            self.add("Z", path, f"{name} of {leaf['size']} bytes is below the threshold")
        if name and extension(name) in SKIPPED_EXTENSIONS:
            self.add("Z", path, f"{name} has an excluded extension")
        if leaf["type"] in ("message/rfc822", "multipart/mixed"):
            self.add("Z", path, f"{name} is a {leaf['type']}")

    def _untreated(self, old, new, numbers):
        if not self.complete or not _is_plain_mail(old):
            return
        for number in numbers:
            leaf = old["leaves"][number]
            if _surely_qualifies(old, leaf, self.min_size):
                self.add("Z", new["path"], f"{leaf['name']} qualifies but was not zipped")

    # -- the whole store ------------------------------------------------------------------------

    def all_attachments(self, before, after):
        """The same multiset of contents, new archives counting as their members."""
        same = {}  # digests of one content by two decoders
        for message in before:
            for leaf in message["leaves"]:
                same[leaf["other_sha"]] = leaf["sha"]
        old = collections.Counter(leaf["sha"] for m in before for leaf in m["leaves"])
        new = collections.Counter()
        for message in after:
            for leaf in message["leaves"]:
                if leaf["zip"] is not None and leaf["sha"] not in old:
                    new.update(same.get(member["sha"], member["sha"])
                               for member in leaf["zip"]["members"])
                else:
                    new[leaf["sha"]] += 1
        # The stand-in of a container's last part is empty; empty parts are judged per message.
        del old[EMPTY_SHA], new[EMPTY_SHA]
        for sha, count in (old - new).items():
            self.add("I1", "store", f"content {sha[:16]} is missing {count} times")
        for sha, count in (new - old).items():
            self.add("I1", "store", f"content {sha[:16]} is there {count} times too often")


def _likeness(old, new):
    same_attributes = sum(old[key] == new[key] for key in ATTRIBUTES)
    return (old["sha"] == new["sha"], align(old, new) is not None, same_attributes)


def _first_difference(old, new):
    number = 0
    for number, (one, two) in enumerate(zip(old["pieces"], new["pieces"])):
        if not _same(one, two):
            break
    return f"piece {number} of {len(old['pieces'])} and {len(new['pieces'])}"


def _member_name_fits(name, member):
    """A plain name must be kept, except for the number of a second file of that name."""
    if not name or not PLAIN_NAME.match(name):
        return "/" not in member and "\\" not in member and member not in ("", ".", "..")
    # Readers differ in the blanks around encoded words.
    name, member = name.replace(" ", ""), member.replace(" ", "")
    plain = re.escape(base_name(name)) + r"(\(\d+\))?" + re.escape(name[len(base_name(name)):])
    return re.fullmatch(plain, member) is not None


def _is_plain_mail(message):
    """False where the class of the message, or a doubt about it, keeps a run away from it."""
    types = {leaf["type"] for leaf in message["leaves"]}
    return not (message["protected"] or "text/calendar" in types
                or message["content_type"] == "multipart/report"
                or "application/ms-tnef" in types or not message["parsers_agree"])


def _surely_qualifies(message, leaf, min_size):
    names = {other["name"] for other in message["leaves"]}
    name = leaf["name"]
    if not name or leaf["protected"] or leaf["disposition"] != "attachment":
        return False
    if name + ".asc" in names or name + ".sig" in names:
        return False
    unusual = [c for c in leaf["containers"] if c != "multipart/mixed"]
    if unusual or (leaf["type"] or "").startswith("message/") or leaf["zip"] is not None:
        return False
    return leaf["size"] >= max(min_size, 1) and extension(name) not in SKIPPED_EXTENSIONS
