#!/usr/bin/env python3
"""Writes the small property lists that PlistlibInteropTest reads.

Each case is written by Python's plistlib as NAME.xml (FMT_XML) and NAME.bplist (FMT_BINARY),
plus NAME.json: what plistlib reads back from the binary file, converted to JSON with the
conventions of our JsonWriter (dates "YYYY-MM-DDTHH:MM:SSZ", data as base64, nan and the
infinities as the strings "nan", "inf", "-inf", UIDs as their number). Cases that XML cannot
hold (UIDs) are written in binary only.

Run from anywhere; the files land beside this script. The output is deterministic, so running
it again must leave `git status` clean.
"""

import base64
import datetime
import json
import math
import os
import plistlib
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
MAX_FILE = 8 * 1024


def when(*args):
    return datetime.datetime(*args)


def cases():
    shared = ["shared", "list", 7]  # one Python object, so plistlib writes it once
    return {
        "integers": {
            "zero": 0,
            "one byte": 255,
            "two bytes": 256,
            "two bytes max": 65535,
            "four bytes": 65536,
            "four bytes max": 2**32 - 1,
            "eight bytes": 2**32,
            "int64 max": 2**63 - 1,
            "above int64": 2**63,
            "uint64 max": 2**64 - 1,
            "minus one": -1,
            "int64 min": -(2**63),
            "true": True,
            "false": False,
            "list": [1, -1, 1000000, -1000000, 4294967296],
        },
        "reals": [
            0.1,
            1e300,
            -2.5,
            3.0,
            0.0,  # not -0.0: plistlib's binary writer shares it with 0.0
            5e-324,
            1.7976931348623157e308,
            123456789.125,
            1e-7,
            float("nan"),
            float("inf"),
            float("-inf"),
        ],
        "strings": {
            "empty": "",
            "ascii": "Hello, world",
            "latin": "Café crème brûlée",
            "cjk": "東京の音楽",
            "arabic": "مرحبا",
            "astral": "😀 𝄞 𐍈",
            "combining": "e\u0301 a\u0308 n\u0303",
            "zwj": "👩\u200d👩\u200d👧",
            "markup": "<key>&amp;</key> & < > \"quoted\" 'single'",
            "escapes": "back\\slash\ttab\nnewline",
            "long ascii": "x" * 40,
            "long unicode": "ü" * 20,
            "é": "key is not ASCII",
            "🎵": "key is astral",
        },
        "dates": [
            when(2001, 1, 1),
            when(1970, 1, 1),
            when(1904, 1, 1),
            when(2038, 1, 19, 3, 14, 8),
            when(2024, 2, 29, 23, 59, 59),
            when(1600, 3, 1, 12, 0, 0),
            when(9999, 12, 31, 23, 59, 59),
            when(1, 1, 1),
        ],
        "data": {
            "empty": b"",
            "one": b"\x00",
            "two": b"\xff\xfe",
            "three": b"abc",
            "ramp": bytes(range(256)),
            "text": "tëxt".encode("utf-8"),
        },
        "empties": {
            "": "empty key",
            "string": "",
            "array": [],
            "dict": {},
            "nested": [[[]], {"a": {}}, [{}]],
        },
        "library": {
            "Major Version": 1,
            "Minor Version": 1,
            "Date": when(2011, 5, 7, 16, 20, 0),
            "Application Version": "10.2.2",
            "Show Content Ratings": True,
            "Music Folder": "file://localhost/Users/me/Music/iTunes/iTunes%20Media/",
            "Library Persistent ID": "0123456789ABCDEF",
            "Tracks": {
                str(track_id): {
                    "Track ID": track_id,
                    "Name": name,
                    "Artist": "Same Artist",
                    "Kind": "MPEG audio file",
                    "Size": 4000000 + track_id,
                    "Total Time": 215000,
                    "Date Added": when(2010, 1, track_id % 28 + 1, 8, 30, 0),
                    "Persistent ID": "%016X" % (0xABCDEF0000 + track_id),
                    "Track Type": "File",
                    "Location": "file://localhost/Music/%d.mp3" % track_id,
                    "File Folder Count": -1,
                }
                for track_id, name in [(101, "First"), (102, "Zweite"), (103, "Troisième")]
            },
            "Playlists": [
                {
                    "Name": "Library",
                    "Master": True,
                    "Playlist ID": 200,
                    "Visible": False,
                    "All Items": True,
                    "Playlist Items": [{"Track ID": 101}, {"Track ID": 102}, {"Track ID": 103}],
                },
                {
                    "Name": "Smart",
                    "Playlist ID": 201,
                    "Smart Info": bytes([0, 0, 0, 1, 1, 0, 0, 0]),
                    "Smart Criteria": bytes(range(40)),
                    "Playlist Items": [{"Track ID": 103}],
                },
            ],
        },
        "shared": {"first": shared, "second": shared, "nested": [shared, {"again": shared}]},
        # A root that is not a container.
        "scalar": "just a string",
        # Keyed-archive references exist only in binary files.
        "uids": {
            "small": plistlib.UID(7),
            "large": plistlib.UID(2**40),
            "list": [plistlib.UID(0), plistlib.UID(255), plistlib.UID(65536)],
        },
    }


def to_json_value(v):
    if isinstance(v, bool):
        return v
    if isinstance(v, int):
        return v
    if isinstance(v, float):
        if math.isnan(v):
            return "nan"
        if math.isinf(v):
            return "inf" if v > 0 else "-inf"
        return v
    if isinstance(v, str):
        return v
    if isinstance(v, bytes):
        return base64.b64encode(v).decode("ascii")
    if isinstance(v, datetime.datetime):
        # Whole seconds, rounded down; zero-padded years (strftime does not pad year 1).
        return "%04d-%02d-%02dT%02d:%02d:%02dZ" % (
            v.year, v.month, v.day, v.hour, v.minute, v.second)
    if isinstance(v, plistlib.UID):
        return v.data
    if isinstance(v, list):
        return [to_json_value(x) for x in v]
    if isinstance(v, dict):
        return {k: to_json_value(x) for k, x in v.items()}
    raise TypeError("unexpected %r" % type(v))


def has_uid(v):
    if isinstance(v, plistlib.UID):
        return True
    if isinstance(v, list):
        return any(has_uid(x) for x in v)
    if isinstance(v, dict):
        return any(has_uid(x) for x in v.values())
    return False


def write(path, data):
    if len(data) >= MAX_FILE:
        sys.exit("%s would be %d bytes; keep corpus files under %d" % (path, len(data), MAX_FILE))
    with open(path, "wb") as f:
        f.write(data)


def main():
    for name, value in cases().items():
        base = os.path.join(HERE, name)
        binary = plistlib.dumps(value, fmt=plistlib.FMT_BINARY, sort_keys=False)
        write(base + ".bplist", binary)
        expected = json.dumps(to_json_value(plistlib.loads(binary)), ensure_ascii=False,
                              indent=2) + "\n"
        if not has_uid(value):
            xml = plistlib.dumps(value, fmt=plistlib.FMT_XML, sort_keys=False)
            write(base + ".xml", xml)
            from_xml = json.dumps(to_json_value(plistlib.loads(xml)), ensure_ascii=False,
                                  indent=2) + "\n"
            if from_xml != expected:
                sys.exit("%s: plistlib reads the XML and binary forms differently" % name)
        write(base + ".json", expected.encode("utf-8"))


if __name__ == "__main__":
    main()
