#!/usr/bin/env python3
"""Regenerates the sample library in this folder, byte for byte.

The sample is the synthetic library of the benchmark generator (30 tracks, 21 playlists,
seed 7) with four of its tracks made real: each points at a short WAV file kept under
"iTunes Media/", and the records say what those files are (Kind, Size, Total Time, Sample
Rate, Bit Rate, Location). Every album folder holding such a file also holds a 64x64
"cover.png", which the reference player answers as the artwork of the album's tracks.

Locations stay below the library's own "Music Folder", so a program that copies the sample
elsewhere only has to move that one prefix (rvitunes demo does, when it lays the sample out).

Usage:
    python3 make-sample.py                 # rewrite the files of this folder
    python3 make-sample.py --check         # compare with them instead; exit 1 on a difference
    python3 make-sample.py --generator PATH/gen_library.py --out DIR

Only the Python standard library is used.
"""

import argparse
import io
import math
import os
import pathlib
import re
import struct
import subprocess
import sys
import tempfile
import urllib.parse
import wave
import zlib

HERE = pathlib.Path(__file__).resolve().parent
# The generator lives beside the repository: <repository>/../shared/bench/gen_library.py.
DEFAULT_GENERATOR = HERE.parents[2] / "shared" / "bench" / "gen_library.py"
LIBRARY_NAME = "iTunes Music Library.xml"
MEDIA_FOLDER = "iTunes Media"

SAMPLE_RATE = 11025  # Hz, mono, 16-bit: 22,050 bytes a second
CHANNELS = 1
SAMPLE_BYTES = 2

# Track ID -> (seconds, notes as semitones above A3). Tracks the tests name are left alone.
REAL_TRACKS = {
    2596: (1.5, [0, 4, 7, 12]),     # "Night Away", Motel Shadow
    2606: (1.0, [3, 7, 10]),        # "The Gold Life", The Valley Dreamer
    2612: (1.2, [5, 9, 12, 9]),     # "The Boy Station Dance", The Valley Dreamer
    2640: (2.0, [-2, 2, 5, 9, 14]), # "Hidden Mountain Lost Distant", Mountain Heaven (Demo)
}

# Album folder (below the media folder) -> cover colours: background top, bottom, disc.
COVERS = {
    "Music/Compilations/Motel Shadow": ((32, 40, 84), (178, 62, 96), (246, 196, 84)),
    "Music/!!!/The Valley Dreamer": ((18, 92, 72), (210, 224, 160), (40, 52, 64)),
    "Music/The Fortunes/Mountain Heaven (Demo)": ((120, 160, 214), (236, 240, 246), (70, 86, 120)),
}


def run_generator(generator):
    command = [sys.executable, str(generator), "--tracks", "30", "--playlists", "21", "--seed", "7"]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout


# ---------------------------------------------------------------------------- audio

def tone_samples(seconds, notes):
    """A short arpeggio: each note a sine with its octave, shaped by a quick attack and decay."""
    total = int(round(seconds * SAMPLE_RATE))
    per_note = total // len(notes)
    frames = bytearray()
    for i in range(total):
        index = min(i // per_note, len(notes) - 1)
        local = (i - index * per_note) / SAMPLE_RATE
        frequency = 220.0 * 2.0 ** (notes[index] / 12.0)
        envelope = min(1.0, local / 0.01) * math.exp(-3.0 * local)
        fade = min(1.0, (total - i) / (0.02 * SAMPLE_RATE))
        value = 0.6 * math.sin(2 * math.pi * frequency * local)
        value += 0.2 * math.sin(4 * math.pi * frequency * local)
        sample = int(round(12000 * envelope * fade * value))
        frames += struct.pack("<h", max(-32768, min(32767, sample)))
    return bytes(frames)


def wav_bytes(seconds, notes):
    out = io.BytesIO()
    with wave.open(out, "wb") as w:
        w.setnchannels(CHANNELS)
        w.setsampwidth(SAMPLE_BYTES)
        w.setframerate(SAMPLE_RATE)
        w.writeframes(tone_samples(seconds, notes))
    return out.getvalue()


def wav_facts(data):
    """Size (bytes), Total Time (ms), Sample Rate (Hz), Bit Rate (kbps) as the player counts them."""
    byte_rate = SAMPLE_RATE * CHANNELS * SAMPLE_BYTES
    data_bytes = len(data) - 44  # the wave module writes the plain 44-byte header
    return {
        "Size": len(data),
        "Total Time": data_bytes * 1000 // byte_rate,
        "Sample Rate": SAMPLE_RATE,
        "Bit Rate": byte_rate * 8 // 1000,
    }


# ---------------------------------------------------------------------------- covers

def png_bytes(width, height, rgb_rows):
    def chunk(kind, payload):
        body = kind + payload
        return struct.pack(">I", len(payload)) + body + struct.pack(">I", zlib.crc32(body))

    raw = b"".join(b"\x00" + bytes(row) for row in rgb_rows)
    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9))
            + chunk(b"IEND", b""))


def cover_png(top, bottom, disc, size=64):
    """A vertical gradient with a record on it: a disc, its grooves and a light label."""
    rows = []
    centre = (size - 1) / 2.0
    for y in range(size):
        t = y / (size - 1)
        background = [round(a + (b - a) * t) for a, b in zip(top, bottom)]
        row = []
        for x in range(size):
            r = math.hypot(x - centre, y - centre)
            if r <= 24:
                groove = 0.82 if int(r) % 4 == 0 else 1.0
                colour = [round(c * groove) for c in disc]
                if r <= 7:
                    colour = [round(255 - (255 - c) * 0.25) for c in background]
                if r <= 1.5:
                    colour = [20, 20, 20]
            else:
                colour = background
            row.extend(colour)
        rows.append(row)
    return png_bytes(size, size, rows)


# ---------------------------------------------------------------------------- the library

def music_folder(xml):
    match = re.search(r"<key>Music Folder</key><string>([^<]*)</string>", xml)
    if not match:
        raise SystemExit("make-sample: the generated library has no Music Folder")
    return match.group(1)


def track_block(xml, track_id):
    start = xml.index("<key>Track ID</key><integer>%d</integer>" % track_id)
    end = xml.index("</dict>", start)
    return start, end


def set_value(block, key, kind, value):
    pattern = r"(<key>%s</key><%s>)[^<]*(</%s>)" % (re.escape(key), kind, kind)
    updated, count = re.subn(pattern, lambda m: m.group(1) + str(value) + m.group(2), block)
    if count != 1:
        raise SystemExit("make-sample: no single %s in a track record" % key)
    return updated


def make_real(xml, track_id, data, prefix):
    start, end = track_block(xml, track_id)
    block = xml[start:end]
    for key, value in wav_facts(data).items():
        block = set_value(block, key, "integer", value)
    block = set_value(block, "Kind", "string", "WAV audio file")
    location = re.search(r"<key>Location</key><string>([^<]*)</string>", block).group(1)
    location = re.sub(r"\.[A-Za-z0-9]+$", ".wav", location)
    block = set_value(block, "Location", "string", location)
    if "<key>Artwork Count</key>" not in block:
        raise SystemExit("make-sample: track %d has no artwork count" % track_id)
    if not location.startswith(prefix):
        raise SystemExit("make-sample: track %d lies outside the music folder" % track_id)
    relative = urllib.parse.unquote(location[len(prefix):])
    return xml[:start] + block + xml[end:], relative


def build(generator):
    """The sample's files: relative path -> bytes."""
    xml = run_generator(generator).decode("utf-8")
    prefix = music_folder(xml)
    files = {}
    for track_id, (seconds, notes) in REAL_TRACKS.items():
        data = wav_bytes(seconds, notes)
        xml, relative = make_real(xml, track_id, data, prefix)
        files[MEDIA_FOLDER + "/" + relative] = data
    for folder, (top, bottom, disc) in COVERS.items():
        files[MEDIA_FOLDER + "/" + folder + "/cover.png"] = cover_png(top, bottom, disc)
    folders = {os.path.dirname(path) for path in files if path.endswith(".wav")}
    if folders != {MEDIA_FOLDER + "/" + folder for folder in COVERS}:
        raise SystemExit("make-sample: every album folder needs one cover, and only those")
    files[LIBRARY_NAME] = xml.encode("utf-8")
    return files


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--generator", default=str(DEFAULT_GENERATOR),
                        help="gen_library.py (default: %(default)s)")
    parser.add_argument("--out", default=str(HERE), help="folder to write (default: this one)")
    parser.add_argument("--check", action="store_true",
                        help="compare with the files in --out instead of writing them")
    args = parser.parse_args()
    if not pathlib.Path(args.generator).is_file():
        raise SystemExit("make-sample: no generator at %s (give --generator)" % args.generator)

    files = build(args.generator)
    out = pathlib.Path(args.out)
    if args.check:
        differing = [p for p, data in sorted(files.items())
                     if not (out / p).is_file() or (out / p).read_bytes() != data]
        for path in differing:
            print("make-sample: differs: %s" % path)
        print("make-sample: %d files, %d differ" % (len(files), len(differing)))
        return 1 if differing else 0
    total = 0
    for path, data in sorted(files.items()):
        target = out / path
        target.parent.mkdir(parents=True, exist_ok=True)
        with tempfile.NamedTemporaryFile(dir=target.parent, delete=False) as tmp:
            tmp.write(data)
        os.replace(tmp.name, target)
        os.chmod(target, 0o644)
        total += len(data)
        print("%8d  %s" % (len(data), path))
    print("%8d  bytes in %d files" % (total, len(files)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
