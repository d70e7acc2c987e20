#!/usr/bin/env python3
"""Puts a VBA project into a workbook the office wrote, for tests of macros
stored in Excel workbooks (the office keeps VBA code it loaded, but cannot
make a workbook with VBA modules of its own).

    make_vba_workbook.py SOURCE TARGET --module NAME=FILE [--module NAME=FILE]...

SOURCE is a binary workbook (a compound file with its "Workbook" stream) or
an Open XML workbook (a zip package). TARGET gets the same workbook with a
VBA project named VBAProject holding the standard modules given, each with
the VBA source read from FILE. A binary workbook gets the project as the
_VBA_PROJECT_CUR storage of its compound file and an OBJPROJ record in its
Workbook stream; an Open XML workbook becomes a macro-enabled one with the
project in xl/vbaProject.bin.

Written from the published formats: the compound file binary format
(version 3, 512-byte sectors, a mini stream for the small streams) and the
VBA project storage (the PROJECT, PROJECTwm, VBA/_VBA_PROJECT and VBA/dir
streams and one stream per module, with the source in compressed containers
made of literal-only chunks). Only the standard library is used.

    make_vba_workbook.py --check FILE

prints the streams of a compound file and the decompressed "dir" stream and
module sources of each VBA storage in it, by this file's own reader.
"""

import argparse
import io
import struct
import sys
import xml.etree.ElementTree as ET
import zipfile

# ---------------------------------------------------------------- compound file

SECTOR = 512
MINI_SECTOR = 64
MINI_CUTOFF = 4096
FREESECT = 0xFFFFFFFF
ENDOFCHAIN = 0xFFFFFFFE
FATSECT = 0xFFFFFFFD
DIFSECT = 0xFFFFFFFC
NOSTREAM = 0xFFFFFFFF
SIGNATURE = b"\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"

STORAGE, STREAM, ROOT = 1, 2, 5


class Storage:
    """A storage of a compound file: named children, each a Storage or the
    bytes of a stream."""

    def __init__(self, clsid=b"\0" * 16):
        self.clsid = clsid
        self.children = {}


def read_compound(data):
    """The root Storage of a compound file's bytes."""
    if data[:8] != SIGNATURE:
        raise ValueError("not a compound file")
    (sector_shift, mini_shift) = struct.unpack_from("<HH", data, 0x1E)
    sector = 1 << sector_shift
    mini_sector = 1 << mini_shift
    (fat_count, first_dir, _, cutoff, first_minifat, minifat_count, first_difat,
     difat_count) = struct.unpack_from("<IIIIIIII", data, 0x2C)

    def sector_bytes(n):
        start = sector + n * sector  # the header takes the first sector
        return data[start:start + sector]

    difat = list(struct.unpack_from("<109I", data, 0x4C))
    next_difat = first_difat
    for _ in range(difat_count):
        entries = struct.unpack("<%dI" % (sector // 4), sector_bytes(next_difat))
        difat.extend(entries[:-1])
        next_difat = entries[-1]
    fat = []
    for n in difat[:fat_count]:
        fat.extend(struct.unpack("<%dI" % (sector // 4), sector_bytes(n)))

    def chain(first, table):
        seen = []
        n = first
        while n not in (ENDOFCHAIN, FREESECT) and len(seen) <= len(table):
            seen.append(n)
            n = table[n]
        return seen

    def read_chain(first):
        return b"".join(sector_bytes(n) for n in chain(first, fat))

    directory = read_chain(first_dir)
    entries = []
    for at in range(0, len(directory) - 127, 128):
        raw = directory[at:at + 128]
        name_length = struct.unpack_from("<H", raw, 64)[0]
        name = raw[:max(name_length - 2, 0)].decode("utf-16-le")
        kind = raw[66]
        left, right, child = struct.unpack_from("<III", raw, 68)
        clsid = raw[80:96]
        start, size = struct.unpack_from("<IQ", raw, 116)
        if sector == 512:
            size &= 0xFFFFFFFF  # version 3 files may leave the high part undefined
        entries.append((name, kind, left, right, child, clsid, start, size))
    minifat = []
    if minifat_count:
        raw = read_chain(first_minifat)
        minifat = list(struct.unpack("<%dI" % (len(raw) // 4), raw))
    mini_stream = read_chain(entries[0][6])

    def stream(start, size):
        if size < cutoff:
            return b"".join(mini_stream[n * mini_sector:(n + 1) * mini_sector]
                            for n in chain(start, minifat))[:size]
        return read_chain(start)[:size]

    def fill(storage, child):
        stack = [child]
        while stack:
            n = stack.pop()
            if n == NOSTREAM:
                continue
            name, kind, left, right, below, clsid, start, size = entries[n]
            stack += [left, right]
            if kind == STORAGE:
                inner = Storage(clsid)
                fill(inner, below)
                storage.children[name] = inner
            elif kind == STREAM:
                storage.children[name] = stream(start, size)

    root = Storage(entries[0][5])
    fill(root, entries[0][4])
    return root


def cfb_order(name):
    """Siblings are ordered by name length, then by the upper-cased name."""
    return (len(name), name.upper())


def write_compound(root):
    """The bytes of a version 3 compound file holding the Storage `root`."""
    # Each storage's children form a red-black tree. Built by halving the
    # sorted names, every level but the deepest is complete: the nodes there
    # are black and those of the deepest level red, so that every path holds
    # as many black nodes and no red node has a red child.
    entries = []  # [name, kind, clsid, left, right, child, payload, color]

    def add(name, kind, clsid, payload):
        entries.append([name, kind, clsid, NOSTREAM, NOSTREAM, NOSTREAM, payload, 1])
        return len(entries) - 1

    def tree(indexes, depth, full_depth):
        if not indexes:
            return NOSTREAM
        middle = len(indexes) // 2
        node = indexes[middle]
        entries[node][3] = tree(indexes[:middle], depth + 1, full_depth)
        entries[node][4] = tree(indexes[middle + 1:], depth + 1, full_depth)
        if depth > full_depth:
            entries[node][7] = 0  # red: below the last complete level
        return node

    def add_children(parent, storage):
        indexes = []
        for name in sorted(storage.children, key=cfb_order):
            if len(name) > 31:
                raise ValueError("name too long for a compound file: " + name)
            child = storage.children[name]
            if isinstance(child, Storage):
                indexes.append(add(name, STORAGE, child.clsid, None))
            else:
                indexes.append(add(name, STREAM, b"\0" * 16, bytes(child)))
        full_depth = (len(indexes) + 1).bit_length() - 2  # levels 0..full_depth are complete
        entries[parent][5] = tree(indexes, 0, full_depth)
        for index in indexes:
            child = storage.children[entries[index][0]]
            if isinstance(child, Storage):
                add_children(index, child)

    add("Root Entry", ROOT, root.clsid, None)
    add_children(0, root)

    # Small streams live in the mini stream, in 64-byte mini sectors.
    mini_stream = bytearray()
    minifat = []
    starts = {}
    for index, entry in enumerate(entries):
        payload = entry[6]
        if entry[1] != STREAM or payload is None:
            continue
        if len(payload) == 0:
            starts[index] = (ENDOFCHAIN, 0, False)
        elif len(payload) < MINI_CUTOFF:
            first = len(minifat)
            count = -(-len(payload) // MINI_SECTOR)
            minifat.extend(range(first + 1, first + count))
            minifat.append(ENDOFCHAIN)
            mini_stream += payload + b"\0" * (count * MINI_SECTOR - len(payload))
            starts[index] = (first, len(payload), True)

    # Regular sectors: big streams, the mini stream, the mini FAT, the
    # directory, then the FAT that describes them all.
    sectors = []  # bytes of each sector
    fat = []

    def place(payload):
        if not payload:
            return ENDOFCHAIN
        first = len(sectors)
        count = -(-len(payload) // SECTOR)
        for n in range(count):
            sectors.append(payload[n * SECTOR:(n + 1) * SECTOR].ljust(SECTOR, b"\0"))
        fat.extend(range(first + 1, first + count))
        fat.append(ENDOFCHAIN)
        return first

    for index, entry in enumerate(entries):
        if entry[1] == STREAM and index not in starts:
            starts[index] = (place(entry[6]), len(entry[6]), False)
    mini_start = place(bytes(mini_stream))
    minifat_raw = b"".join(struct.pack("<I", n) for n in minifat)
    minifat_raw += b"\xFF" * (-len(minifat_raw) % SECTOR)
    minifat_start = place(minifat_raw)
    minifat_sectors = len(minifat_raw) // SECTOR

    directory = bytearray()
    for index, (name, kind, clsid, left, right, child, payload, color) in enumerate(entries):
        encoded = name.encode("utf-16-le")
        if kind == ROOT:
            start, size = mini_start, len(mini_stream)
        elif kind == STREAM:
            start, size, _ = starts[index]
        else:
            start, size = 0, 0
        directory += struct.pack("<64sHBBIII16sIQQIQ", encoded, len(encoded) + 2, kind, color,
                                 left, right, child, clsid, 0, 0, 0, start, size)
    unused = struct.pack("<64sHBBIII16sIQQIQ", b"", 0, 0, 0, NOSTREAM, NOSTREAM, NOSTREAM,
                         b"\0" * 16, 0, 0, 0, 0, 0)
    while len(directory) % SECTOR:
        directory += unused
    directory_start = place(bytes(directory))

    per_sector = SECTOR // 4
    fat_count = 1
    while fat_count * per_sector < len(sectors) + fat_count:
        fat_count += 1
    if fat_count > 109:
        raise ValueError("workbook too large for this writer (no DIFAT sectors)")
    fat_first = len(sectors)
    fat.extend([FATSECT] * fat_count)
    fat.extend([FREESECT] * (fat_count * per_sector - len(fat)))
    raw_fat = struct.pack("<%dI" % len(fat), *fat)
    for n in range(fat_count):
        sectors.append(raw_fat[n * SECTOR:(n + 1) * SECTOR])

    difat = list(range(fat_first, fat_first + fat_count)) + [FREESECT] * (109 - fat_count)
    header = SIGNATURE + b"\0" * 16 + struct.pack(
        "<HHHHH6sIIIIIIIII", 0x003E, 0x0003, 0xFFFE, 9, 6, b"\0" * 6, 0, fat_count,
        directory_start, 0, MINI_CUTOFF, minifat_start if minifat_sectors else ENDOFCHAIN,
        minifat_sectors, ENDOFCHAIN, 0) + struct.pack("<109I", *difat)
    return header + b"".join(sectors)


# ------------------------------------------------------------------ VBA project

CODE_PAGE = 1252
ENCODING = "cp1252"
PROJECT_ID = "{5D1C7A3E-2B8F-4C61-9E0A-7F3B2C4D5E6F}"  # made up for these tests
HOST_EXTENDER = "&H00000001={3832D640-CF90-11CF-8E43-00A0C911005A};VBE;&H00000000"


def compress(data):
    """A compressed container whose chunks hold literal tokens only: each
    flag byte 0 announces eight literal bytes. A chunk may decode to at most
    4096 bytes and hold at most 4096 bytes after its header, so a chunk takes
    3640 bytes of the source (455 flag bytes + 3640 literals)."""
    out = bytearray(b"\x01")
    for at in range(0, len(data), 3640):
        piece = data[at:at + 3640]
        body = bytearray()
        for group in range(0, len(piece), 8):
            body.append(0)
            body += piece[group:group + 8]
        # size - 3 in the low 12 bits, signature 0b011, compressed flag set
        out += struct.pack("<H", 0x8000 | 0x3000 | (len(body) + 2 - 3))
        out += body
    return bytes(out)


def decompress(data):
    """The bytes of a compressed container (literal and copy tokens, raw
    chunks), for --check."""
    if not data or data[0] != 1:
        raise ValueError("not a compressed container")
    out = bytearray()
    at = 1
    while at + 2 <= len(data):
        header = struct.unpack_from("<H", data, at)[0]
        size = (header & 0x0FFF) + 3
        end = min(at + size, len(data))
        at += 2
        chunk_start = len(out)
        if not header & 0x8000:
            out += data[at:at + 4096]
            at += 4096
            continue
        while at < end:
            flags = data[at]
            at += 1
            for bit in range(8):
                if at >= end:
                    break
                if not flags >> bit & 1:
                    out.append(data[at])
                    at += 1
                    continue
                token = struct.unpack_from("<H", data, at)[0]
                at += 2
                done = len(out) - chunk_start
                bits = max((done - 1).bit_length(), 4)
                length = (token & (0xFFFF >> bits)) + 3
                offset = (token >> (16 - bits)) + 1
                for _ in range(length):
                    out.append(out[-offset])
    return bytes(out)


def encrypt(data, seed=0x5A):
    """Data Encryption of the PROJECT stream's protection values, as hex."""
    version = 2
    project_key = sum(PROJECT_ID.encode(ENCODING)) & 0xFF
    out = [seed, seed ^ version, seed ^ project_key]
    unencrypted1, encrypted1, encrypted2 = project_key, out[2], out[1]

    def put(byte):
        nonlocal unencrypted1, encrypted1, encrypted2
        encoded = byte ^ ((encrypted2 + unencrypted1) & 0xFF)
        out.append(encoded)
        encrypted2, encrypted1, unencrypted1 = encrypted1, encoded, byte

    for _ in range((seed & 6) // 2):
        put(0)  # ignored bytes
    for byte in struct.pack("<I", len(data)) + data:
        put(byte)
    return "".join("%02X" % b for b in out)


def decrypt(text):
    """The data of Data Encryption's hex text (for --check)."""
    raw = bytes.fromhex(text)
    seed = raw[0]
    project_key = raw[2] ^ seed
    unencrypted1, encrypted1, encrypted2 = project_key, raw[2], raw[1]
    plain = []
    for byte in raw[3:]:
        decoded = byte ^ ((encrypted2 + unencrypted1) & 0xFF)
        plain.append(decoded)
        encrypted2, encrypted1, unencrypted1 = encrypted1, byte, decoded
    plain = bytes(plain[(seed & 6) // 2:])
    length = struct.unpack_from("<I", plain)[0]
    return plain[4:4 + length]


def record(record_id, payload):
    return struct.pack("<HI", record_id, len(payload)) + payload


def dir_stream(project_name, modules):
    """The decompressed "dir" stream: project information, no references,
    then each module's record."""
    mbcs = project_name.encode(ENCODING)
    out = bytearray()
    out += record(0x0001, struct.pack("<I", 1))  # SYSKIND: 32-bit Windows
    out += record(0x0002, struct.pack("<I", 0x409))  # LCID
    out += record(0x0014, struct.pack("<I", 0x409))  # LCIDINVOKE
    out += record(0x0003, struct.pack("<H", CODE_PAGE))  # CODEPAGE
    out += record(0x0004, mbcs)  # NAME
    out += record(0x0005, b"") + record(0x0040, b"")  # DOCSTRING and its Unicode form
    out += record(0x0006, b"") + record(0x003D, b"")  # HELPFILEPATH, twice
    out += record(0x0007, struct.pack("<I", 0))  # HELPCONTEXT
    out += record(0x0008, struct.pack("<I", 0))  # LIBFLAGS
    out += struct.pack("<HIIH", 0x0009, 4, 1, 0)  # VERSION 1.0
    out += record(0x000C, b"") + record(0x003C, b"")  # CONSTANTS and its Unicode form
    out += record(0x000F, struct.pack("<H", len(modules)))  # MODULES
    out += record(0x0013, struct.pack("<H", 0xFFFF))  # PROJECTCOOKIE
    for name, _ in modules:
        out += record(0x0019, name.encode(ENCODING))  # MODULENAME
        out += record(0x0047, name.encode("utf-16-le"))  # MODULENAMEUNICODE
        out += record(0x001A, name.encode(ENCODING)) + record(0x0032, name.encode("utf-16-le"))
        out += record(0x001C, b"") + record(0x0048, b"")  # DOCSTRING
        out += record(0x0031, struct.pack("<I", 0))  # OFFSET: no performance cache
        out += record(0x001E, struct.pack("<I", 0))  # HELPCONTEXT
        out += record(0x002C, struct.pack("<H", 0xFFFF))  # COOKIE
        out += struct.pack("<HI", 0x0021, 0)  # TYPE: a standard module
        out += struct.pack("<HI", 0x002B, 0)  # module terminator
    out += struct.pack("<HI", 0x0010, 0)  # dir terminator
    return bytes(out)


def module_source(name, code):
    """A module's source as the project stores it: its name attribute first,
    lines ended by CR LF."""
    lines = ['Attribute VB_Name = "%s"' % name]
    lines += code.replace("\r\n", "\n").rstrip("\n").split("\n") if code.strip() else []
    return ("\r\n".join(lines) + "\r\n").encode(ENCODING)


def project_text(project_name, modules):
    lines = ['ID="%s"' % PROJECT_ID]
    for name, _ in modules:
        lines.append("Module=%s" % name)
    lines += ['Name="%s"' % project_name, 'HelpContextID="0"', 'VersionCompatible32="393222000"',
              'CMG="%s"' % encrypt(b"\0\0\0\0"),  # not protected
              'DPB="%s"' % encrypt(b"\0"),  # no password
              'GC="%s"' % encrypt(b"\xFF"),  # visible
              "", "[Host Extender Info]", HOST_EXTENDER, ""]
    return ("\r\n".join(lines) + "\r\n").encode(ENCODING)


def vba_project(project_name, modules):
    """The storage of a VBA project: PROJECT, PROJECTwm and VBA."""
    storage = Storage()
    storage.children["PROJECT"] = project_text(project_name, modules)
    names = bytearray()
    for name, _ in modules:
        names += name.encode(ENCODING) + b"\0" + name.encode("utf-16-le") + b"\0\0"
    storage.children["PROJECTwm"] = bytes(names + b"\0\0")
    vba = Storage()
    # Reserved1, Version (0xFFFF: no version-dependent cache), Reserved2, Reserved3
    vba.children["_VBA_PROJECT"] = struct.pack("<HHBH", 0x61CC, 0xFFFF, 0, 0)
    vba.children["dir"] = compress(dir_stream(project_name, modules))
    for name, code in modules:
        vba.children[name] = compress(module_source(name, code))
    storage.children["VBA"] = vba
    return storage


# --------------------------------------------------------------------- workbooks

OBJPROJ, RRTABID, BOUNDSHEET, INDEX, EXTSST, FILEPASS = 0xD3, 0x13D, 0x85, 0x20B, 0xFF, 0x2F


def records(stream):
    """(offset, type, data) of each record of a BIFF8 stream."""
    at = 0
    while at + 4 <= len(stream):
        kind, size = struct.unpack_from("<HH", stream, at)
        yield at, kind, stream[at + 4:at + 4 + size]
        at += 4 + size


def announce_project(stream):
    """The Workbook stream with an OBJPROJ record, which tells readers that
    the file has a VBA project, placed where the globals substream keeps it
    (after RRTabId). The records after it move by four bytes, so the stream
    positions that records hold are moved too: each sheet's BOF in
    BoundSheet8, the DBCell positions in Index, the string positions in
    ExtSST."""
    found = [(at, kind) for at, kind, _ in records(stream)]
    if any(kind == FILEPASS for _, kind in found):
        raise ValueError("the binary workbook is encrypted")
    if any(kind == OBJPROJ for _, kind in found):
        return stream
    after = next((at for at, kind in found if kind == RRTABID), None)
    if after is None:
        raise ValueError("no RRTabId record in the workbook's globals")
    insert_at = after + 4 + struct.unpack_from("<H", stream, after + 2)[0]
    shift = 4

    def moved(position):
        return position + shift if position >= insert_at else position

    out = bytearray()
    for at, kind, data in records(stream):
        if at == insert_at:
            out += struct.pack("<HH", OBJPROJ, 0)
        data = bytearray(data)
        if kind == BOUNDSHEET:
            struct.pack_into("<I", data, 0, moved(struct.unpack_from("<I", data, 0)[0]))
        elif kind == INDEX:
            for field in range(16, len(data) - 3, 4):
                struct.pack_into("<I", data, field, moved(struct.unpack_from("<I", data, field)[0]))
        elif kind == EXTSST:
            for field in range(2, len(data) - 7, 8):
                struct.pack_into("<I", data, field, moved(struct.unpack_from("<I", data, field)[0]))
        out += struct.pack("<HH", kind, len(data)) + data
    return bytes(out)


def binary_workbook(source, modules):
    root = read_compound(source)
    if "Workbook" not in root.children:
        raise ValueError("no Workbook stream in the binary workbook")
    root.children["Workbook"] = announce_project(root.children["Workbook"])
    root.children["_VBA_PROJECT_CUR"] = vba_project("VBAProject", modules)
    return write_compound(root)


CONTENT_TYPES = "http://schemas.openxmlformats.org/package/2006/content-types"
RELATIONSHIPS = "http://schemas.openxmlformats.org/package/2006/relationships"
OFFICE_DOCUMENT = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/officeDocument"
VBA_RELATIONSHIP = "http://schemas.microsoft.com/office/2006/relationships/vbaProject"
VBA_CONTENT_TYPE = "application/vnd.ms-office.vbaProject"
MACRO_WORKBOOK = "application/vnd.ms-excel.sheet.macroEnabled.main+xml"


def xml_bytes(root, default_namespace):
    ET.register_namespace("", default_namespace)
    return b'<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n' + ET.tostring(root)


def open_xml_workbook(source, modules):
    package = zipfile.ZipFile(io.BytesIO(source))
    parts = {info.filename: package.read(info) for info in package.infolist()}
    # The workbook part is the package's office document.
    rels = ET.fromstring(parts["_rels/.rels"])
    workbook = next(r.get("Target") for r in rels if r.get("Type") == OFFICE_DOCUMENT).lstrip("/")
    folder, _, workbook_name = workbook.rpartition("/")
    workbook_rels = (folder + "/" if folder else "") + "_rels/" + workbook_name + ".rels"
    project_part = (folder + "/" if folder else "") + "vbaProject.bin"

    types = ET.fromstring(parts["[Content_Types].xml"])
    for override in types.findall("{%s}Override" % CONTENT_TYPES):
        if override.get("PartName") == "/" + workbook:
            override.set("ContentType", MACRO_WORKBOOK)
    vba_type = ET.SubElement(types, "{%s}Override" % CONTENT_TYPES)
    vba_type.set("PartName", "/" + project_part)
    vba_type.set("ContentType", VBA_CONTENT_TYPE)
    parts["[Content_Types].xml"] = xml_bytes(types, CONTENT_TYPES)

    book_rels = ET.fromstring(parts[workbook_rels])
    used = {r.get("Id") for r in book_rels}
    rel_id = next("rId%d" % n for n in range(1, len(used) + 2) if "rId%d" % n not in used)
    relation = ET.SubElement(book_rels, "{%s}Relationship" % RELATIONSHIPS)
    relation.set("Id", rel_id)
    relation.set("Type", VBA_RELATIONSHIP)
    relation.set("Target", "vbaProject.bin")
    parts[workbook_rels] = xml_bytes(book_rels, RELATIONSHIPS)

    parts[project_part] = write_compound(vba_project("VBAProject", modules))
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as target:
        # The content types first, as the package format expects.
        for name in ["[Content_Types].xml"] + [n for n in parts if n != "[Content_Types].xml"]:
            target.writestr(name, parts[name])
    return out.getvalue()


def check(path):
    with open(path, "rb") as f:
        data = f.read()
    if data[:2] == b"PK":
        data = zipfile.ZipFile(io.BytesIO(data)).read("xl/vbaProject.bin")

    def walk(storage, prefix):
        for name, child in sorted(storage.children.items()):
            if isinstance(child, Storage):
                print("%s%s/" % (prefix, name))
                walk(child, prefix + name + "/")
            else:
                print("%s%s %d" % (prefix, name, len(child)))
        if "dir" in storage.children and "_VBA_PROJECT" in storage.children:
            print("%sdir = %s" % (prefix, decompress(storage.children["dir"]).hex()))
        if "PROJECT" in storage.children:
            text = storage.children["PROJECT"].decode(ENCODING)
            print(text.replace("\r\n", "\n"))
            for line in text.split("\r\n"):
                key, _, value = line.partition("=")
                if key in ("CMG", "DPB", "GC"):
                    print("%s data = %s" % (key, decrypt(value.strip('"')).hex()))
            vba = storage.children.get("VBA")
            for line in text.split("\r\n"):
                key, _, value = line.partition("=")
                if key in ("Module", "Document") and isinstance(vba, Storage):
                    name = value.split("/")[0]
                    print("--- %s\n%s" % (name, decompress(vba.children[name]).decode(ENCODING)))

    walk(read_compound(data), "")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--check", metavar="FILE")
    parser.add_argument("source", nargs="?")
    parser.add_argument("target", nargs="?")
    parser.add_argument("--module", action="append", default=[], metavar="NAME=FILE")
    args = parser.parse_args()
    if args.check:
        check(args.check)
        return 0
    if not args.source or not args.target or not args.module:
        parser.error("SOURCE, TARGET and a module are needed")
    modules = []
    for given in args.module:
        name, _, file = given.partition("=")
        with open(file, encoding="utf-8") as f:
            modules.append((name, f.read()))
    with open(args.source, "rb") as f:
        source = f.read()
    if source[:8] == SIGNATURE:
        result = binary_workbook(source, modules)
    elif source[:2] == b"PK":
        result = open_xml_workbook(source, modules)
    else:
        parser.error("SOURCE is neither a binary nor an Open XML workbook")
    with open(args.target, "wb") as f:
        f.write(result)
    return 0


if __name__ == "__main__":
    sys.exit(main())
