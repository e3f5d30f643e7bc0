#!/usr/bin/env python3
"""Writes the hand-made regression inputs of the fuzz targets (files named hand-*).

Each target gets inputs at its limits: lengths and counts at their largest values, nesting
just under, at and past the reader's limit, and truncations at the boundaries of a valid
input. Inputs found by fuzzing (crash-*, found-*) are kept as they are and never touched.
Python 3 standard library only; the output is deterministic.

    python3 tests/corpus/fuzz/make_corpus.py
"""

import os
import plistlib
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
MAX_FILE = 8192  # every corpus file stays under 8 KB

XML_HEAD = (
    b'<?xml version="1.0" encoding="UTF-8"?>\n'
    b'<!DOCTYPE plist PUBLIC "-//Apple Computer//DTD PLIST 1.0//EN" '
    b'"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n'
    b'<plist version="1.0">\n'
)


def xml_doc(body):
    return XML_HEAD + body + b"\n</plist>\n"


def be16(v):
    return struct.pack(">H", v & 0xFFFF)


def be32(v):
    return struct.pack(">I", v & 0xFFFFFFFF)


def be64(v):
    return struct.pack(">Q", v & 0xFFFFFFFFFFFFFFFF)


# ------------------------------------------------------------------------- plist_xml


def plist_xml():
    out = {}
    for depth in (255, 256, 257):
        out[f"nesting-arrays-{depth}.xml"] = xml_doc(b"<array>" * depth + b"</array>" * depth)
    out["nesting-dicts-257.xml"] = xml_doc(b"<dict><key>k</key>" * 257 + b"</dict>" * 257)
    out["nesting-unclosed-1100.xml"] = XML_HEAD + b"<array>" * 1100
    out["integer-limits.xml"] = xml_doc(
        b"<array>"
        + b"".join(
            b"<integer>" + v + b"</integer>"
            for v in (b"18446744073709551615", b"18446744073709551616", b"-9223372036854775808",
                      b"-9223372036854775809", b"9" * 400, b"-", b"+", b"", b"0x", b"0xFFFFFFFFFFFFFFFFF",
                      b" 12 ", b"1e3")
        )
        + b"</array>"
    )
    out["real-limits.xml"] = xml_doc(
        b"<array>"
        + b"".join(
            b"<real>" + v + b"</real>"
            for v in (b"1e309", b"-1e309", b"4.9e-324", b"1e-400", b"nan", b"-inf", b"+infinity",
                      b"1" * 400 + b".5", b"0." + b"0" * 400 + b"1", b".", b"e5", b"1e", b"")
        )
        + b"</array>"
    )
    out["date-limits.xml"] = xml_doc(
        b"<array>"
        + b"".join(
            b"<date>" + v + b"</date>"
            for v in (b"0000-01-01T00:00:00Z", b"9999-12-31T23:59:59Z", b"99999-01-01T00:00:00Z",
                      b"2001-13-01T00:00:00Z", b"2001-02-29T00:00:00Z", b"2001-01-01T24:00:60Z",
                      b"2001-01-01T00:00:00.999999999999Z", b"-2001-01-01T00:00:00Z", b"")
        )
        + b"</array>"
    )
    out["references-at-limits.xml"] = xml_doc(
        b"<array>"
        + b"".join(
            b"<string>" + v + b"</string>"
            for v in (b"&#x10FFFF;", b"&#x110000;", b"&#0;", b"&#xD800;", b"&#xDC00;&#xD800;",
                      b"&#99999999999999999999;", b"&#x;", b"&#;", b"&unknown;", b"&amp", b"&",
                      b"&#x" + b"F" * 300 + b";")
        )
        + b"</array>"
    )
    out["data-garbage.xml"] = xml_doc(
        b"<array><data>====</data><data>QU=JD</data><data>\x00\xff</data><data>"
        + b"QUJD" * 1700
        + b"Q</data></array>"
    )
    out["long-key-and-text.xml"] = xml_doc(
        b"<dict><key>" + b"k" * 3500 + b"</key><string>" + b"\xe6\x9d\xb1" * 1100 + b"</string></dict>"
    )
    # A small document with every construct, cut inside each of them.
    full = (
        XML_HEAD
        + b"<!-- note --><dict><key>a&amp;b</key><string><![CDATA[x<y]]></string>"
        + b"<key>n</key><integer>42</integer><key>d</key><data>AAEC</data>"
        + b"<key>t</key><true/></dict>\n</plist>\n"
    )
    cuts = {
        "declaration": full.index(b"encoding"),
        "doctype": full.index(b"PropertyList"),
        "comment": full.index(b"note"),
        "reference": full.index(b"amp;") + 2,
        "cdata": full.index(b"x<y"),
        "start-tag": full.index(b"<integer>") + 4,
        "end-tag": full.index(b"</integer>") + 5,
        # The reader matches frequent tags eight bytes at a time; cut one byte short of one.
        "common-tag": full.index(b"</string>") + 8,
        "empty-element": full.index(b"<true/>") + 6,
        "before-plist-end": full.index(b"</plist>"),
    }
    for name, at in cuts.items():
        out[f"truncated-in-{name}.xml"] = full[:at]
    return out


# ---------------------------------------------------------------------- plist_binary


def bplist(objects, top=0, offset_size=None, ref_size=1, count=None, table_at=None):
    """A bplist00 from already encoded objects; fields may be overridden to lie."""
    body = b"bplist00"
    offsets = []
    for obj in objects:
        offsets.append(len(body))
        body += obj
    table = len(body)
    size = (1 if table < 256 else 2) if offset_size is None else offset_size
    for off in offsets:
        body += off.to_bytes(max(size, 1), "big")
    trailer = b"\0" * 6 + bytes([size & 0xFF, ref_size & 0xFF])
    trailer += be64(len(objects) if count is None else count) + be64(top)
    trailer += be64(table if table_at is None else table_at)
    return body + trailer


def array(refs):
    assert len(refs) < 15
    return bytes([0xA0 | len(refs)]) + bytes(refs)


def plist_binary():
    out = {}
    one = b"\x10\x01"
    out["trailer-offset-size-0.bplist"] = bplist([one], offset_size=0)
    out["trailer-offset-size-9.bplist"] = bplist([one], offset_size=9)
    out["trailer-ref-size-0.bplist"] = bplist([array([0]), one], ref_size=0)
    out["trailer-count-max.bplist"] = bplist([one], count=2**64 - 1)
    out["trailer-top-past-count.bplist"] = bplist([one], top=1)
    out["trailer-top-max.bplist"] = bplist([one], top=2**64 - 1)
    out["trailer-table-at-0.bplist"] = bplist([one], table_at=0)
    out["trailer-table-max.bplist"] = bplist([one], table_at=2**64 - 1)
    # Lengths written as integers after a 0xF nibble, at their largest.
    out["data-length-2-62.bplist"] = bplist([b"\x4f\x13" + be64(2**62) + b"x"])
    out["string-length-max.bplist"] = bplist([b"\x5f\x13" + be64(2**63 - 1) + b"x"])
    # Twice this many bytes, plus the object's offset, wraps a 64-bit sum.
    out["utf16-length-overflow.bplist"] = bplist([b"\x6f\x13" + be64(2**63 - 1) + b"xx"])
    out["array-count-max.bplist"] = bplist([b"\xaf\x13" + be64(2**64 - 1) + b"\x00"])
    out["count-negative.bplist"] = bplist([b"\x4f\x13" + be64(2**64 - 5) + b"x"])
    out["int128-high-half.bplist"] = bplist(
        [array([1, 2, 3]), b"\x14" + be64(1) + be64(0), b"\x14" + be64(2**64 - 1) + be64(5),
         b"\x14" + be64(2**64 - 1) + be64(2**63)]
    )
    out["uid-16-bytes.bplist"] = bplist([b"\x8f" + b"\x01" * 16])
    out["utf16-lone-surrogates.bplist"] = bplist([b"\x63\xd8\x00\xdc\x00\xd8\x3d"])
    out["self-containing.bplist"] = bplist([array([0])])
    out["mutual-containing.bplist"] = bplist([array([1]), array([0])])
    out["dictionary-key-not-string.bplist"] = bplist([b"\xd1\x01\x01", one])
    for depth in (256, 257):  # arrays inside arrays; two-byte references past 255 objects
        objects = [b"\xa1" + be16(i + 1) for i in range(depth - 1)] + [b"\xa0"]
        out[f"nesting-{depth}.bplist"] = bplist(objects, ref_size=2)
    # Ten levels, each naming the next fourteen times: 14^10 values from a few hundred bytes.
    fan = [bytes([0xAE]) + bytes([i + 1] * 14) for i in range(10)] + [one]
    out["fan-out-14-10.bplist"] = bplist(fan)
    # A small valid file cut at each of its boundaries.
    full = plistlib.dumps({"Tracks": {"1": {"Name": "A\u00e9", "Size": 2**40}}, "List": [True, 1.5]},
                          fmt=plistlib.FMT_BINARY, sort_keys=False)
    trailer = len(full) - 32
    table = struct.unpack(">Q", full[-8:])[0]
    for name, at in {"header": 8, "first-object": 9, "offset-table": table,
                     "trailer": trailer, "last-byte": len(full) - 1}.items():
        out[f"truncated-at-{name}.bplist"] = full[:at]
    return out


# -------------------------------------------------------------------------- ae_build


def ae_build():
    out = {}
    for depth in (63, 64, 65):
        out[f"nesting-lists-{depth}.txt"] = b"[" * depth + b"]" * depth
        out[f"nesting-records-{depth}.txt"] = b"{a:" * depth + b"1" + b"}" * depth
    out["nesting-unclosed-4000.txt"] = b"[" * 4000
    out["nesting-mixed-4000.txt"] = b"obj{a:[" * 1000
    out["number-limits.txt"] = (
        b"[32767, 32768, -32768, -32769, 2147483647, -2147483648, doub(-2147483648), "
        b"magn(2147483647), sing(16777217), bool(1), shor(-32768)]"
    )
    out["number-over-32-bits.txt"] = b"[1, -2147483649]"
    out["number-400-digits.txt"] = b"long(" + b"9" * 400 + b")"
    out["number-bool-2.txt"] = b"bool(2)"
    out["hex-long.txt"] = b"'abcd'($" + b"0123456789ABCDEF" * 480 + b"$)"
    out["hex-odd.txt"] = b"'abcd'($ABC$)"
    out["hex-whitespace.txt"] = b"'abcd'($ A\tB\nC D $)"
    out["codes-odd-lengths.txt"] = b"[''(), 'abcdefgh'(x), a(), '\\''(), '\\\\'(x), longint(1)]"
    out["unterminated-string.txt"] = b'{a:"never closed'
    out["unterminated-quote.txt"] = b"[1, 'abc"
    out["unterminated-hex.txt"] = b"'abcd'($0102"
    out["legacy-delimiters.txt"] = b"[\xd2text\xd3, \xd4abcd\xd5(x), 'x'(\xc70102\xc8)]"
    out["substitutions-without-arguments.txt"] = b"[@, long(@), 'x'(@@), (@)]"
    out["stray-legacy-delimiter.txt"] = b"[1, \xd3]"
    out["double-at-alone.txt"] = b"[1, @@]"
    out["control-characters.txt"] = b"[1,\x00 2,\x1f 3]"
    out["empty-structures.txt"] = b"[(), [], {}, null(), list(), reco(), long(), 'utxt'(), x{}]"
    out["long-string.txt"] = b'"' + b"s" * 8000 + b'"'
    full = b"{form:prop, want:type(prop), seld:type(pnam), from:obj{a:[1, \"x\", $0102$]}}"
    for i, at in enumerate(sorted({full.index(c) + 1 for c in (b":", b"(", b"{", b"[", b'"', b"$")})):
        out[f"truncated-{i:02d}.txt"] = full[:at]
    return out


# --------------------------------------------------------------------------- ae_wire


def desc(type_code, data):
    pad = b"\0" if len(data) % 2 else b""
    return type_code + be32(len(data)) + data + pad


def nested_list(items):
    body = b"".join(items)
    return b"list" + be32(8 + len(body)) + be32(len(items)) + be32(0) + body


def top_list(items):
    body = b"".join(items)
    inner = be32(0) + be32(0) + be32(0x18) + b"list" + be32(len(items)) + be32(0) + body
    return b"list" + be32(len(inner)) + inner


def event(attributes=(), parameters=(), attr_count=None, param_count=None):
    body = be32(1) + b"hook" + b"Play" + be16(7) + be16(0) + be32(0)
    body += be32(len(attributes) if attr_count is None else attr_count)
    body += be32(len(parameters) if param_count is None else param_count)
    for key, value in list(attributes) + list(parameters):
        body += key + value
    return b"aevt" + be32(len(body)) + body


def ae_wire():
    header = b"dle2" + be32(0)
    out = {}
    out["size-max.bin"] = header + b"TEXT" + be32(0xFFFFFFFF) + b"abc"
    out["size-shape-bit.bin"] = header + b"TEXT" + be32(0x80000004) + b"abcd"
    out["size-past-end.bin"] = header + b"TEXT" + be32(9) + b"abcd"
    out["list-count-max.bin"] = header + b"list" + be32(0x20) + be32(0) * 2 + be32(0x18) + b"list" + \
        be32(0xFFFFFFFF) + be32(0) + desc(b"long", be32(1)) + b"\0" * 4
    out["record-count-max.bin"] = header + top_list([b"reco" + be32(8) + be32(0xFFFFFFFF) + be32(0)])
    out["event-counts-max.bin"] = header + event(attr_count=0xFFFFFFFF, param_count=0xFFFFFFFF)
    out["event-reserved-attribute.bin"] = header + event(attributes=[(b"rtid", desc(b"shor", be16(1)))])
    out["event-version-2.bin"] = header + event().replace(be32(1) + b"hook", be32(2) + b"hook", 1)
    out["trailing-bytes.bin"] = header + desc(b"long", be32(1)) + b"\0\0"
    out["odd-data-no-pad.bin"] = header + b"utxt" + be32(3) + b"abc"
    out["header-wrong.bin"] = b"dle1" + be32(0) + desc(b"null", b"")
    out["header-only.bin"] = header
    for depth in (63, 64, 65):
        inner = desc(b"long", be32(depth))
        for _ in range(depth - 2):
            inner = nested_list([inner])
        out[f"nesting-{depth}.bin"] = header + top_list([inner])
    deep_event = event(parameters=[(b"----", desc(b"null", b""))])
    for _ in range(70):
        deep_event = nested_list([deep_event])
    out["nesting-events-70.bin"] = header + top_list([deep_event])
    full = header + event(attributes=[(b"addr", desc(b"sign", b"hook"))],
                          parameters=[(b"----", desc(b"utxt", b"\0a\0b\0c")),
                                      (b"data", nested_list([desc(b"TEXT", b"odd")]))])
    for name, at in {"in-header": 6, "after-header": 8, "in-event-header": 30,
                     "before-parameters": 8 + 44, "in-parameter": len(full) - 9,
                     "before-pad": len(full) - 1}.items():
        cut = full[:at]
        if at >= 16:  # the event's own size agrees with the cut, so the reader looks inside
            cut = cut[:12] + be32(at - 16) + cut[16:]
        out[f"truncated-{name}.bin"] = cut
    return out


# ------------------------------------------------------------------------ image_pict


def pict_v2(opcodes, frame=(0, 0, 2, 2)):
    body = b"".join(struct.pack(">h", v) for v in frame) + b"\x00\x11\x02\xff"
    body += b"\x0c\x00\xff\xfe\x00\x00\x00\x48\x00\x00\x00\x48\x00\x00"
    body += b"".join(struct.pack(">h", v) for v in frame) + b"\0" * 4
    body += opcodes
    return be16(len(body) + 2) + body


def direct_bits(width, height, row_bytes, rows, pixel_size=32, cmp_count=3, pack_type=4):
    rect = struct.pack(">hhhh", 0, 0, height, width)
    pixmap = be16(0) + be16(pack_type) + be32(0) + be32(0x480000) + be32(0x480000)
    pixmap += be16(16) + be16(pixel_size) + be16(cmp_count) + be16(8) + be32(0) * 3
    return (b"\x00\x9a" + be32(0xFF) + be16(row_bytes | 0x8000) + rect + pixmap + rect + rect
            + be16(0) + rows)


def image_pict():
    out = {}
    end = b"\x00\xff"
    out["frame-max.pict"] = pict_v2(end, frame=(-32768, -32768, 32767, 32767))
    out["direct-bounds-max.pict"] = pict_v2(direct_bits(32767, 32767, 0x3FFF, b"\x00") + end)
    out["direct-row-count-past-end.pict"] = pict_v2(direct_bits(4, 1, 16, b"\x7f\x00\x00") + end)
    out["direct-packbits-overrun.pict"] = pict_v2(
        direct_bits(300, 1, 1200, be16(4) + b"\x81\x01\x81\x02") + end)
    out["direct-pixel-size-odd.pict"] = pict_v2(direct_bits(2, 2, 8, b"\0" * 32, pixel_size=24) + end)
    out["opcode-long-length-max.pict"] = pict_v2(b"\x00\xd0" + be32(0xFFFFFFFF) + end)
    out["opcode-short-length-max.pict"] = pict_v2(b"\x00\xa1" + be16(1) + be16(0xFFFF) + end)
    out["region-sizes.pict"] = pict_v2(b"\x00\x01" + be16(0) + b"\x00\x01" + be16(9) + end)
    out["region-size-max.pict"] = pict_v2(b"\x00\x01" + be16(0xFFFF) + b"\0" * 8 + end)
    out["colour-table-count-max.pict"] = pict_v2(
        b"\x00\x98" + be16(0x8004) + struct.pack(">hhhh", 0, 0, 1, 4) + be16(0) + be16(0)
        + be32(0) + be32(0x480000) + be32(0x480000) + be16(0) + be16(8) + be16(1) + be16(8)
        + be32(0) * 3 + be32(0) + be16(0) + be16(0x7FFF) + b"\0" * 8 + end)
    out["quicktime-length-max.pict"] = pict_v2(b"\x82\x00" + be32(0xFFFFFFFF) + end)
    out["version-1-no-end.pict"] = be16(20) + struct.pack(">hhhh", 0, 0, 2, 2) + b"\x11\x01\xa0\x00"
    out["file-header-only.pict"] = b"\0" * 512 + be16(0) + b"\0" * 8
    with open(os.path.join(HERE, "..", "..", "..", "fuzz", "corpus", "image_pict",
                           "direct-opaque-6x3.pict"), "rb") as f:
        full = f.read()
    for name, at in {"in-frame": 6, "in-version": 12, "in-header-op": 30, "in-clip": 44,
                     "in-pixmap": 80, "in-rows": 124, "before-end": len(full) - 2,
                     "in-end": len(full) - 1}.items():
        out[f"truncated-{name}.pict"] = full[:at]
    return out


# ------------------------------------------------------------------------ image_icns


def element(code, data, length=None):
    return code + be32(len(data) + 8 if length is None else length) + data


def family(elements, total=None):
    body = b"".join(elements)
    return b"icns" + be32(len(body) + 8 if total is None else total) + body


def png(width, height, rows=b""):
    def chunk(kind, data):
        return be32(len(data)) + kind + data + be32(zlib.crc32(kind + data))
    ihdr = be32(width) + be32(height) + bytes([8, 6, 0, 0, 0])
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", ihdr) + chunk(b"IDAT", zlib.compress(rows))
            + chunk(b"IEND", b""))


def image_icns():
    out = {}
    out["total-max.icns"] = b"icns" + be32(0xFFFFFFFF) + element(b"is32", b"\0" * 8)
    out["total-7.icns"] = b"icns" + be32(7)
    out["element-length-0.icns"] = family([element(b"is32", b"", length=0)])
    out["element-length-7.icns"] = family([element(b"is32", b"", length=7)])
    out["element-length-max.icns"] = family([element(b"is32", b"\0" * 8, length=0xFFFFFFFF)], total=24)
    out["rle-run-past-channel.icns"] = family([element(b"is32", b"\xff\x01" * 2 + b"\x7f" + b"\0" * 20)])
    out["rle-literal-past-end.icns"] = family([element(b"is32", b"\x7f\x01\x02")])
    out["it32-zero-prefix-only.icns"] = family([element(b"it32", b"\0\0\0\0")])
    out["argb-truncated.icns"] = family([element(b"ic04", b"ARGB\xff\x00")])
    out["png-dimensions-large.icns"] = family([element(b"ic08", png(65535, 65535))])
    out["png-wrong-size-for-slot.icns"] = family([element(b"icp4", png(17, 16, b"\0" * 40))])
    out["jpeg2000-slot.icns"] = family([element(b"ic09", b"\0\0\0\x0cjP  \r\n\x87\n")])
    out["mask-only.icns"] = family([element(b"s8mk", b"\xff" * 256)])
    out["nested-family.icns"] = family([element(b"tile", family([element(b"is32", b"\0")]))])
    with open(os.path.join(HERE, "..", "..", "..", "fuzz", "corpus", "image_icns",
                           "family-16.icns"), "rb") as f:
        full = f.read()
    at = 8
    index = 0
    while at + 8 <= len(full):
        length = struct.unpack(">I", full[at + 4:at + 8])[0]
        # The family's total agrees with the cut, so the reader looks at the elements.
        for part, end in (("header", at + 4), ("data", at + 8 + (length - 8) // 2)):
            out[f"truncated-element-{index}-{part}.icns"] = full[:4] + be32(end) + full[8:end]
        at += max(length, 8)
        index += 1
    return out


# ------------------------------------------------------------------------ image_tiff


def tiff(entries, next_ifd=0, extra=b"", ifd_at=8, count=None):
    """A little-endian TIFF whose first IFD holds `entries` (tag, type, count, value)."""
    head = b"II*\0" + struct.pack("<I", ifd_at)
    head += b"\0" * (ifd_at - len(head))
    ifd = struct.pack("<H", len(entries) if count is None else count)
    for tag, kind, n, value in sorted(entries):
        ifd += struct.pack("<HHII", tag, kind, n, value)
    ifd += struct.pack("<I", next_ifd)
    return head + ifd + extra


SHORT, LONG = 3, 4


def rgb_entries(width, height, strip_at, strip_bytes, bits=8):
    return [(256, LONG, 1, width), (257, LONG, 1, height), (258, SHORT, 1, bits),
            (259, SHORT, 1, 1), (262, SHORT, 1, 1), (273, LONG, 1, strip_at),
            (277, SHORT, 1, 1), (278, LONG, 1, height), (279, LONG, 1, strip_bytes)]


def image_tiff():
    out = {}
    ifd_end = 8 + 2 + 9 * 12 + 4
    out["dimensions-max.tiff"] = tiff(rgb_entries(0xFFFFFFFF, 0xFFFFFFFF, ifd_end, 4), extra=b"\0" * 4)
    out["width-max-height-1.tiff"] = tiff(rgb_entries(0xFFFFFFFF, 1, ifd_end, 4), extra=b"\0" * 4)
    out["strip-past-end.tiff"] = tiff(rgb_entries(4, 4, 0xFFFFFFF0, 16))
    out["strip-bytes-max.tiff"] = tiff(rgb_entries(4, 4, ifd_end, 0xFFFFFFFF), extra=b"\0" * 16)
    out["strip-short.tiff"] = tiff(rgb_entries(64, 64, ifd_end, 4096), extra=b"\x80" * 100)
    out["bits-per-sample-odd.tiff"] = tiff(rgb_entries(4, 4, ifd_end, 16, bits=3), extra=b"\0" * 16)
    out["ifd-loop.tiff"] = tiff(rgb_entries(2, 2, ifd_end, 4), next_ifd=8, extra=b"\0" * 4)
    out["ifd-offset-max.tiff"] = b"II*\0" + struct.pack("<I", 0xFFFFFFFF)
    out["ifd-count-max.tiff"] = tiff([], count=0xFFFF)
    out["entry-count-max.tiff"] = tiff([(256, LONG, 0xFFFFFFFF, 8), (257, LONG, 1, 1)])
    out["bigtiff-offsets-max.tiff"] = b"II+\0\x08\0\0\0" + b"\xff" * 8
    out["big-endian-truncated-ifd.tiff"] = b"MM\0*" + be32(8) + be16(9) + b"\x01\x00"
    with open(os.path.join(HERE, "..", "..", "..", "fuzz", "corpus", "image_tiff",
                           "rgba-plain.tif"), "rb") as f:
        full = f.read()
    ifd = struct.unpack("<I", full[4:8])[0] if full[:2] == b"II" else struct.unpack(">I", full[4:8])[0]
    for name, at in {"in-header": 6, "at-first-ifd": min(ifd, len(full)),
                     "in-first-ifd": min(ifd + 20, len(full) - 1), "before-end": len(full) - 1}.items():
        out[f"truncated-{name}.tiff"] = full[:at]
    return out


# ----------------------------------------------------------------------- applescript


def applescript():
    out = {}
    for depth in (32, 33):
        out[f"nesting-chain-{depth}.txt"] = (b'tell application "A" to ' * depth) + b"quit\n"
        out[f"nesting-blocks-{depth}.txt"] = (
            b'tell application "A"\n' * depth + b"quit\n" + b"end tell\n" * depth
        )
    out["nesting-chain-300.txt"] = b'tell application "A" to ' * 300 + b"quit"
    out["nesting-blocks-unclosed-380.txt"] = b'tell application "A"\n' * 380
    out["string-long.txt"] = b'tell application "' + b"n" * 8000 + b'" to quit\n'
    out["string-escapes.txt"] = b'tell application "\\\\\\"\\n\\r\\t" to quit\n'
    out["string-bad-escape.txt"] = b'tell application "a\\q" to quit\n'
    out["string-backslash-at-end.txt"] = b'tell application "a\\'
    out["string-unterminated-multiline.txt"] = b'tell application "a\nb\r\nc'
    out["number-limits.txt"] = (
        b'tell application "iTunes"\nset player position to 2147483647\n'
        b"set player position to -2147483648\nset player position to 2147483648\n"
        b"set player position to " + b"9" * 400 + b".5\nset player position to 1.\n"
        b"set player position to -.5\nend tell\n"
    )
    out["line-ends-mixed.txt"] = b'\r\n\r\rtell application "iTunes"\r\nplay\rstop\n\r\nend\r'
    out["bytes-invalid.txt"] = b'tell application "\xff\xfe\x00" to quit\x00\n\xc3'
    out["words-long.txt"] = b"tell " + b"a" * 7000 + b" to quit"
    out["system-events-misuse.txt"] = (
        b'tell application "system events" to tell process "x" to tell process "y" to quit\n'
        b'tell process "x" to set visible to true\n'
    )
    full = b'tell application "iTunes"\nplay POSIX file "/a b.mp3" with once\nset player position to -2.5\nend tell\n'
    for i, word in enumerate((b"application", b'"iTunes"', b"POSIX", b"file", b"with", b"once",
                              b"position", b"-2.5", b"end", b"tell\n")):
        at = full.rindex(word) + len(word) // 2
        out[f"truncated-{i:02d}.txt"] = full[:at]
    return out


TARGETS = {
    "plist_xml": plist_xml,
    "plist_binary": plist_binary,
    "ae_build": ae_build,
    "ae_wire": ae_wire,
    "image_pict": image_pict,
    "image_icns": image_icns,
    "image_tiff": image_tiff,
    "applescript": applescript,
}


def main():
    for target, make in TARGETS.items():
        folder = os.path.join(HERE, target)
        os.makedirs(folder, exist_ok=True)
        for name in os.listdir(folder):
            if name.startswith("hand-"):
                os.remove(os.path.join(folder, name))
        for name, data in sorted(make().items()):
            assert len(data) < MAX_FILE, f"{target}/{name} is {len(data)} bytes"
            with open(os.path.join(folder, "hand-" + name), "wb") as f:
                f.write(data)


if __name__ == "__main__":
    main()
