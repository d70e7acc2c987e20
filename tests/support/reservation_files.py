#!/usr/bin/env python3
"""Reads and writes the write reservations of workbook files on its own, for
tests of the office backend: an independent reader of what a save wrote and
an independent writer of reservations for the open to check.

    reservation_files.py read FILE [PASSWORD]

prints one line "key=value ..." about the reservation of FILE (.xls, .xlsx
or .ods): kind (none,
verifier, salted), algorithm, count, read_only (the file recommends opening
it read-only: fileSharing/@readOnlyRecommended or the "marked as final"
property of an Open XML file, LoadReadonly of an OpenDocument one), salt
(base64) and, with
PASSWORD, password=accepted or password=rejected.

    reservation_files.py reserve SOURCE TARGET PASSWORD [--algorithm NAME]
        [--spin N] [--read-only-recommended] [--salt-size N] [--claimed-spin N]

copies SOURCE to TARGET with a reservation of PASSWORD: an Open XML workbook
gets a fileSharing element (a salted hash spun N times, as Excel writes it),
an OpenDocument spreadsheet a ModifyPasswordInfo in its settings.xml
(--algorithm PBKDF2, the default there, or a spun hash). --claimed-spin
writes another spin count into an Open XML file than the hash was made
with, for files no program should spend the time on.

Written from the published formats: ISO/IEC 29500-1 fileSharing (H0 =
H(salt + password as UTF-16LE), then H(Hn-1 + n as 4 little-endian bytes)),
the legacy 16-bit verifier of [MS-OFFCRYPTO] 2.3.7.1, PBKDF2-HMAC-SHA1
(RFC 8018) of the UTF-8 password for OpenDocument settings. Hashes come from
hashlib, fileSharing is parsed by openpyxl, settings.xml by ElementTree.
"""

import argparse
import base64
import hashlib
import os
import re
import struct
import sys
import xml.etree.ElementTree as ET
import zipfile

CONFIG = "urn:oasis:names:tc:opendocument:xmlns:config:1.0"
HASHES = {"SHA-1": "sha1", "SHA1": "sha1", "SHA-256": "sha256", "SHA256": "sha256",
          "SHA-384": "sha384", "SHA384": "sha384", "SHA-512": "sha512", "SHA512": "sha512"}


def spun(algorithm, salt, password, spins):
    name = HASHES.get(algorithm.upper(), algorithm.lower().replace("-", ""))
    digest = hashlib.new(name, salt + password.encode("utf-16-le")).digest()
    for i in range(spins):
        digest = hashlib.new(name, digest + struct.pack("<I", i)).digest()
    return digest


def verifier(password):
    data = password.encode("utf-8")
    value = 0
    for byte in reversed(data):
        value = (((value >> 14) & 1) | ((value << 1) & 0x7FFF)) ^ byte
    value = (((value >> 14) & 1) | ((value << 1) & 0x7FFF))
    return value ^ 0xCE4B ^ len(data)


def read_xls(path, password):
    import olefile
    stream = olefile.OleFileIO(path).openstream("Workbook").read()
    out = {"kind": "none", "read_only": 0}
    at = 0
    while at + 4 <= len(stream):
        record, size = struct.unpack("<HH", stream[at:at + 4])
        if record == 0x5B:  # FILESHARING: fReadOnlyRec, wResPassNum, ...
            read_only, stored = struct.unpack("<HH", stream[at + 4:at + 8])
            out["read_only"] = int(read_only != 0)
            if stored:
                out.update(kind="verifier", verifier="%04x" % stored)
                if password is not None:
                    out["password"] = "accepted" if stored == verifier(password) else "rejected"
        at += 4 + size
    return out


def is_ods(path):
    with zipfile.ZipFile(path) as z:
        return "settings.xml" in z.namelist() and "xl/workbook.xml" not in z.namelist()


def read_xlsx(path, password):
    from openpyxl.packaging.workbook import WorkbookPackage
    from openpyxl.xml.functions import fromstring
    with zipfile.ZipFile(path) as z:
        package = WorkbookPackage.from_tree(fromstring(z.read("xl/workbook.xml")))
        custom = z.read("docProps/custom.xml").decode() if "docProps/custom.xml" in z.namelist() else ""
    final = re.search(r'name="_MarkAsFinal"><vt:bool>(1|true)<', custom) is not None
    sharing = package.fileSharing
    out = {"kind": "none", "read_only": int(final or bool(sharing and sharing.readOnlyRecommended))}
    if sharing is None:
        return out
    if sharing.hashValue:
        out.update(kind="salted", algorithm=sharing.algorithmName, count=sharing.spinCount or 0,
                   salt=base64.b64encode(base64.b64decode(sharing.saltValue or "")).decode())
        if password is not None:
            made = spun(sharing.algorithmName, base64.b64decode(sharing.saltValue or ""), password,
                        sharing.spinCount or 0)
            out["password"] = "accepted" if made == base64.b64decode(sharing.hashValue) else "rejected"
    elif sharing.reservationPassword:
        out.update(kind="verifier", verifier=str(sharing.reservationPassword).lower())
        if password is not None:
            right = int(sharing.reservationPassword, 16) == verifier(password)
            out["password"] = "accepted" if right else "rejected"
    return out


def read_ods(path, password):
    with zipfile.ZipFile(path) as z:
        root = ET.fromstring(z.read("settings.xml"))
    name = "{%s}name" % CONFIG
    out = {"kind": "none", "read_only": 0}
    for item in root.iter("{%s}config-item" % CONFIG):
        if item.get(name) == "LoadReadonly" and item.text == "true":
            out["read_only"] = 1
    for block in root.iter("{%s}config-item-set" % CONFIG):
        if block.get(name) != "ModifyPasswordInfo":
            continue
        values = {i.get(name): i.text or "" for i in block.findall("{%s}config-item" % CONFIG)}
        algorithm = values.get("algorithm-name", "")
        count = int(values.get("iteration-count", "0"))
        salt = base64.b64decode(values.get("salt", ""))
        stored = base64.b64decode(values.get("hash", ""))
        out.update(kind="salted", algorithm=algorithm, count=count, salt=base64.b64encode(salt).decode())
        if password is not None:
            if algorithm == "PBKDF2":
                made = hashlib.pbkdf2_hmac("sha1", password.encode("utf-8"), salt, count, len(stored))
            else:
                made = spun(algorithm, salt, password, count)
            out["password"] = "accepted" if made == stored else "rejected"
    return out


def rewrite(source, target, part, change):
    """Copies a zip package with one part changed, every entry in its place
    and with its own compression (an OpenDocument's mimetype stays first
    and stored)."""
    with zipfile.ZipFile(source) as src, zipfile.ZipFile(target + ".tmp", "w") as dst:
        for info in src.infolist():
            data = src.read(info.filename)
            if info.filename == part:
                data = change(data.decode("utf-8")).encode("utf-8")
            dst.writestr(info, data)
    os.replace(target + ".tmp", target)


def reserve_xlsx(args):
    salt = os.urandom(args.salt_size)
    digest = spun(args.algorithm, salt, args.password, args.spin)
    element = '<fileSharing userName="Tests"%s algorithmName="%s" hashValue="%s" saltValue="%s" spinCount="%d"/>' % (
        ' readOnlyRecommended="1"' if args.read_only_recommended else "", args.algorithm,
        base64.b64encode(digest).decode(), base64.b64encode(salt).decode(),
        args.spin if args.claimed_spin is None else args.claimed_spin)

    def change(text):
        text = re.sub(r"<fileSharing[^>]*/>", "", text)
        return re.sub(r"(<fileVersion[^>]*/>)", lambda m: m.group(1) + element, text, count=1)

    rewrite(args.source, args.target, "xl/workbook.xml", change)


def reserve_ods(args):
    salt = os.urandom(args.salt_size)
    if args.algorithm == "PBKDF2":
        digest = hashlib.pbkdf2_hmac("sha1", args.password.encode("utf-8"), salt, args.spin, 16)
        kind = "base64Binary"
    else:
        digest = spun(args.algorithm, salt, args.password, args.spin)
        kind = "string"
    items = "".join('<config:config-item config:name="%s" config:type="%s">%s</config:config-item>' % item for item in [
        ("algorithm-name", "string", args.algorithm),
        ("salt", kind, base64.b64encode(salt).decode()),
        ("iteration-count", "int", str(args.spin)),
        ("hash", kind, base64.b64encode(digest).decode()),
    ])
    block = '<config:config-item-set config:name="ModifyPasswordInfo">%s</config:config-item-set>' % items

    def change(text):
        text = re.sub(r'<config:config-item-set config:name="ModifyPasswordInfo">.*?</config:config-item-set>', "",
                      text)
        opening = re.search(r'<config:config-item-set config:name="ooo:configuration-settings">', text)
        return text[:opening.end()] + block + text[opening.end():]

    rewrite(args.source, args.target, "settings.xml", change)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True)
    read = commands.add_parser("read")
    read.add_argument("file")
    read.add_argument("password", nargs="?")
    reserve = commands.add_parser("reserve")
    reserve.add_argument("source")
    reserve.add_argument("target")
    reserve.add_argument("password")
    reserve.add_argument("--algorithm")
    reserve.add_argument("--spin", type=int, default=100000)
    reserve.add_argument("--salt-size", type=int, default=16)
    reserve.add_argument("--read-only-recommended", action="store_true")
    reserve.add_argument("--claimed-spin", type=int)
    args = parser.parse_args()

    if args.command == "read":
        with open(args.file, "rb") as f:
            compound = f.read(8) == b"\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"
        reader = read_xls if compound else read_ods if is_ods(args.file) else read_xlsx
        found = reader(args.file, args.password)
        print(" ".join("%s=%s" % (k, v) for k, v in found.items()))
    elif is_ods(args.source):
        args.algorithm = args.algorithm or "PBKDF2"
        reserve_ods(args)
    else:
        args.algorithm = args.algorithm or "SHA-512"
        reserve_xlsx(args)
    return 0


if __name__ == "__main__":
    sys.exit(main())
