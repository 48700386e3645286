#!/usr/bin/env python3
"""Prints the label positions of each WAV or AIFF file named, in frames, one line a file:
M:<marker>,...  R:<start>+<length>,...  L:<start>-<end>,...  T:<time reference>
(loop ends exclusive; T only for a WAV with a bext chunk). Read from the chunks with nothing but struct,
so that the tests check the program's labels against a reader that shares none of its code."""

import struct
import sys


def chunks(data, start, end, big):
    while start + 8 <= end:
        cid = data[start:start + 4]
        (size,) = struct.unpack(">I" if big else "<I", data[start + 4:start + 8])
        yield cid, data[start + 8:start + 8 + size]
        start += 8 + size + (size & 1)


def wave(data):
    points, ltxt, loops, reference = {}, {}, [], None
    for cid, body in chunks(data, 12, len(data), False):
        if cid == b"cue ":
            for i in range(struct.unpack("<I", body[:4])[0]):
                cue, position, _, _, _, offset = struct.unpack("<II4sIII", body[4 + 24 * i:28 + 24 * i])
                points[cue] = offset or position
        elif cid == b"LIST" and body[:4] == b"adtl":
            for sub, payload in chunks(body, 4, len(body), False):
                if sub == b"ltxt":
                    cue, length, purpose = struct.unpack("<II4s", payload[:12])
                    ltxt[cue] = (length, purpose)
        elif cid == b"smpl":
            for i in range(struct.unpack("<I", body[28:32])[0]):
                _, _, first, last, _, _ = struct.unpack("<6I", body[36 + 24 * i:60 + 24 * i])
                loops.append((first, last + 1))
        elif cid == b"bext":
            reference = struct.unpack("<Q", body[338:346])[0]
    markers = [f for cue, f in points.items() if cue not in ltxt]
    regions = [(f, ltxt[cue][0]) for cue, f in points.items()
               if cue in ltxt and (ltxt[cue][0] > 0 or ltxt[cue][1] == b"rgn ")]
    return markers, regions, loops, reference


def aiff(data):
    marks, loop_ids, regions, private_loops = {}, [], [], None
    for cid, body in chunks(data, 12, len(data), True):
        if cid == b"MARK":
            at = 2
            for _ in range(struct.unpack(">H", body[:2])[0]):
                mark, position, length = struct.unpack(">HIB", body[at:at + 7])
                marks[mark] = position
                at += 7 + length + ((length + 1) & 1)
        elif cid == b"INST":
            for at in (8, 14):
                mode, first, last = struct.unpack(">hHH", body[at:at + 6])
                if mode in (1, 2):
                    loop_ids.append((first, last))
        elif cid == b"APPL" and body[:4] == b"CLPW":
            for record, payload in chunks(body, 4, len(body), True):
                if record == b"REGN":
                    regions.append(struct.unpack(">II", payload[:8]))
                elif record == b"LOOP":
                    private_loops = (private_loops or []) + [struct.unpack(">II", payload[:8])]
    in_loops = {m for pair in loop_ids for m in pair}
    markers = [f for mark, f in marks.items() if mark not in in_loops]
    loops = [(s, s + n) for s, n in private_loops] if private_loops is not None else \
        [(marks[a], marks[b]) for a, b in loop_ids]
    return markers, regions, loops, None


def main(path):
    with open(path, "rb") as f:
        data = f.read()
    markers, regions, loops, reference = (wave if data[:4] == b"RIFF" else aiff)(data)
    line = "M:%s R:%s L:%s" % (",".join(str(m) for m in sorted(markers)),
                               ",".join("%d+%d" % r for r in sorted(regions)),
                               ",".join("%d-%d" % l for l in sorted(loops)))
    print(line + ("" if reference is None else " T:%d" % reference))


if __name__ == "__main__":
    for name in sys.argv[1:]:
        main(name)
