#!/usr/bin/env python3
"""What a sound file is, read without Clipwright, and the comparison of two such readings.

  inplace-check.py snapshot DIR OUT.json     every file of DIR: ffprobe's container, codec, sample format,
                                             channels, rate, bit rate and tags, and the RIFF/AIFF chunks
  inplace-check.py compare BEFORE.json AFTER.json
                                             prints each difference and the counts; exit 1 if any

The chunk lister is our own: ids in file order with a hash of each payload, LIST chunks under their list
type ("LIST/INFO"). The audio chunks (data, SSND) are left out, and so are the chunks that describe the
audio rather than annotate it (fmt, fact, COMM, FVER, JUNK, ds64, PAD, and PEAK, whose levels a gain
changes), compared apart.
"""
import hashlib
import json
import os
import struct
import subprocess
import sys

AUDIO = {b"data", b"SSND"}
HEADER = {b"fmt ", b"fact", b"COMM", b"FVER", b"JUNK", b"junk", b"ds64", b"PAD ", b"FLLR", b"PEAK"}
LOSSY = {"mp3", "mp2", "vorbis", "opus"}
BIT_RATE_TOLERANCE = 0.15  # lossy: the rewrite's bit rate within 15 % of the source's


def chunks(path):
    """[(id, sha1)] of a RIFF/RIFX/RF64/BW64 or FORM file's chunks, or None for other files."""
    with open(path, "rb") as f:
        data = f.read()
    if len(data) < 12:
        return None
    magic = data[:4]
    if magic in (b"RIFF", b"RF64", b"BW64"):
        endian = "<"
    elif magic in (b"RIFX", b"FORM"):
        endian = ">"
    else:
        return None
    found, pos = [], 12
    while pos + 8 <= len(data):
        cid = data[pos:pos + 4]
        (size,) = struct.unpack(endian + "I", data[pos + 4:pos + 8])
        body = data[pos + 8:pos + 8 + size]
        name = cid.decode("latin-1")
        if cid == b"LIST" and len(body) >= 4:
            name += "/" + body[:4].decode("latin-1")
        kind = "audio" if cid in AUDIO else "header" if cid in HEADER else "meta"
        if cid == b"data" and magic != b"FORM" and size in (0, 0xFFFFFFFF):
            break  # streamed or RF64: the audio runs to the end
        found.append([kind, name, hashlib.sha1(body).hexdigest() if kind != "audio" else ""])
        pos += 8 + size + (size & 1)
    return found


def probe(path):
    out = subprocess.run(["ffprobe", "-v", "error", "-print_format", "json", "-show_format", "-show_streams",
                          "-select_streams", "a:0", path], capture_output=True, text=True)
    if out.returncode != 0:
        return None
    info = json.loads(out.stdout)
    stream = (info.get("streams") or [{}])[0]
    fmt = info.get("format", {})
    size, duration = float(fmt.get("size", 0)), float(fmt.get("duration", 0) or 0)
    return {
        "container": fmt.get("format_name"),
        "codec": stream.get("codec_name"),
        "sample_fmt": stream.get("sample_fmt"),
        "bits": stream.get("bits_per_raw_sample") or stream.get("bits_per_sample"),
        "channels": stream.get("channels"),
        "rate": stream.get("sample_rate"),
        # Bytes over seconds, as Clipwright measures its sources: stream headers' figures are nominal.
        "bit_rate": size * 8 / duration if duration > 0 else 0,
        "tags": {k.lower(): v for k, v in {**fmt.get("tags", {}), **stream.get("tags", {})}.items()
                 if k.lower() not in ("encoder", "encoded_by")},
    }


def snapshot(directory, out):
    files = {}
    for name in sorted(os.listdir(directory)):
        path = os.path.join(directory, name)
        if os.path.isfile(path) and not os.path.islink(path):
            files[name] = {"probe": probe(path), "chunks": chunks(path)}
    json.dump(files, open(out, "w"))


def compare(before_path, after_path):
    before, after = json.load(open(before_path)), json.load(open(after_path))
    counts = dict.fromkeys(["files", "renamed", "unreadable", "format", "bit rate", "chunks",
                            "header chunks", "tags", "lossy", "riff/aiff"], 0)
    for name, old in before.items():
        counts["files"] += 1
        new = after.get(name)
        if new is None:
            counts["renamed"] += 1
            print(f"RENAMED: {name}")
            continue
        p, q = old["probe"], new["probe"]
        if p is None:
            continue
        if q is None:
            counts["unreadable"] += 1
            print(f"UNREADABLE AFTER: {name}")
            continue
        for key in ("container", "codec", "sample_fmt", "bits", "channels", "rate"):
            if p[key] != q[key]:
                counts["format"] += 1
                print(f"FORMAT: {name}: {key} {p[key]} -> {q[key]}")
                break
        if p["codec"] in LOSSY:
            counts["lossy"] += 1
            if p["bit_rate"] and abs(q["bit_rate"] - p["bit_rate"]) > BIT_RATE_TOLERANCE * p["bit_rate"]:
                counts["bit rate"] += 1
                print(f"BIT RATE: {name}: {p['bit_rate'] / 1000:.1f} -> {q['bit_rate'] / 1000:.1f} kb/s")
        lost = {k: v for k, v in p["tags"].items() if q["tags"].get(k) != v}
        if lost:
            counts["tags"] += 1
            print(f"TAGS: {name}: {sorted(lost)}")
        if old["chunks"] is not None:
            counts["riff/aiff"] += 1
            for kind, label in (("meta", "chunks"), ("header", "header chunks")):
                a = sorted((n, h) for k, n, h in old["chunks"] if k == kind)
                b = sorted((n, h) for k, n, h in (new["chunks"] or []) if k == kind)
                if a != b:
                    counts[label] += 1
                    gone = sorted({n for n, h in a} ^ {n for n, h in b} | {n for (n, h) in set(a) ^ set(b)})
                    print(f"{label.upper()}: {name}: differ in {gone}")
    print("; ".join(f"{k}: {v}" for k, v in counts.items()))
    return 1 if any(counts[k] for k in ("renamed", "unreadable", "format", "bit rate", "chunks")) else 0


if __name__ == "__main__":
    if sys.argv[1:2] == ["snapshot"]:
        snapshot(sys.argv[2], sys.argv[3])
    elif sys.argv[1:2] == ["compare"]:
        sys.exit(compare(sys.argv[2], sys.argv[3]))
    else:
        sys.exit(__doc__)
