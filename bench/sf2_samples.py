#!/usr/bin/env python3
"""Writes the pitched samples of a SoundFont 2 file as 16-bit mono WAV files, with a manifest.

Usage: sf2_samples.py FONT.sf2 OUTDIR
OUTDIR gets NNNN.wav per sample and manifest.tsv (file, name, originalPitch, pitchCorrection, rate,
frames, note, pitch). pitch is what the font plays the sample as, in semitones: the zone's
overridingRootKey (or else originalPitch) less its tuning (coarseTune and fineTune of the instrument and
the preset, and pitchCorrection), of the zones that play it the most common; note is that rounded. Many
fonts leave originalPitch at 60 and set the note in the zones. Skipped: samples whose
originalPitch is 255 (unpitched); samples that only unpitched presets use (bank 128, the percussion
kits, and the percussive and sound-effect programs of General MIDI, 112 to 127); right channels and
linked or ROM samples (the left or mono sample stands for a pair); samples shorter than 50 ms. The counts
of each are printed on stderr.
"""
import os
import struct
import sys
import wave


def chunks(data, offset, end):
    while offset + 8 <= end:
        cid, size = struct.unpack_from("<4sI", data, offset)
        yield cid, offset + 8, size
        offset += 8 + size + (size & 1)


def riff_lists(data):
    """The sub-chunks of each LIST of the sfbk form, by list type and chunk id."""
    form, size, kind = struct.unpack_from("<4sI4s", data, 0)
    if form != b"RIFF" or kind != b"sfbk":
        raise SystemExit("not a SoundFont 2 file")
    found = {}
    for cid, start, length in chunks(data, 12, min(len(data), 8 + size)):
        if cid != b"LIST":
            continue
        for sub, sub_start, sub_length in chunks(data, start + 4, start + length):
            found[sub] = (sub_start, sub_length)
    return found


def records(data, where, fmt):
    start, length = where
    size = struct.calcsize(fmt)
    return [struct.unpack_from(fmt, data, start + i * size) for i in range(length // size)]


def zones(data, found):
    """Sample indices reached only from unpitched presets, and the notes each sample is played as."""
    phdr = records(data, found[b"phdr"], "<20sHHHIII")
    pbag = records(data, found[b"pbag"], "<HH")
    pgen = records(data, found[b"pgen"], "<Hh")
    inst = records(data, found[b"inst"], "<20sH")
    ibag = records(data, found[b"ibag"], "<HH")
    igen = records(data, found[b"igen"], "<Hh")

    def zone_list(bags, gens, first, last, terminal):
        """Each zone's generators, the global zone's (the first, when it lacks the terminal one) merged in."""
        out = [{gens[g][0]: gens[g][1] for g in range(bags[b][0], bags[b + 1][0])} for b in range(first, last)]
        if out and terminal not in out[0]:
            common = out.pop(0)
            out = [{**common, **zone} for zone in out]
        return [zone for zone in out if terminal in zone]

    notes = {}

    def samples_of(instrument, preset_tune):
        out = set()
        for zone in zone_list(ibag, igen, inst[instrument][1], inst[instrument + 1][1], 53):  # sampleID
            sample = zone[53] & 0xFFFF
            out.add(sample)
            # Semitones the instrument and preset shift the sample by: coarseTune (51), fineTune (52, cents).
            tune = zone.get(51, 0) + zone.get(52, 0) / 100.0 + preset_tune
            notes.setdefault(sample, set()).add((zone.get(58, -1), tune))  # overridingRootKey
        return out

    unpitched, pitched = set(), set()
    for p in range(len(phdr) - 1):  # the last record ends the list
        program, bank = phdr[p][1], phdr[p][2]
        target = unpitched if bank == 128 or program >= 112 else pitched
        for zone in zone_list(pbag, pgen, phdr[p][3], phdr[p + 1][3], 41):  # instrument
            target |= samples_of(zone[41] & 0xFFFF, zone.get(51, 0) + zone.get(52, 0) / 100.0)
    return unpitched - pitched, notes


def main():
    font, outdir = sys.argv[1], sys.argv[2]
    data = open(font, "rb").read()
    found = riff_lists(data)
    smpl_start, smpl_length = found[b"smpl"]
    unpitched, notes = zones(data, found)
    os.makedirs(outdir, exist_ok=True)
    skipped = {"unpitched": 0, "unpitched presets": 0, "right, linked or ROM": 0, "shorter than 50 ms": 0}
    written = 0
    with open(os.path.join(outdir, "manifest.tsv"), "w") as manifest:
        shdr = records(data, found[b"shdr"], "<20sIIIIIBbHH")
        for index, (name, start, end, _, _, rate, pitch, correction, _, kind) in enumerate(shdr[:-1]):
            if pitch == 255:
                skipped["unpitched"] += 1
            elif index in unpitched:
                skipped["unpitched presets"] += 1
            elif kind not in (1, 4):  # mono or left
                skipped["right, linked or ROM"] += 1
            elif rate == 0 or (end - start) < 0.05 * rate or 2 * end > smpl_length:
                skipped["shorter than 50 ms"] += 1
            else:
                path = "%04d.wav" % index
                with wave.open(os.path.join(outdir, path), "wb") as w:
                    w.setnchannels(1)
                    w.setsampwidth(2)
                    w.setframerate(rate)
                    w.writeframes(data[smpl_start + 2 * start : smpl_start + 2 * end])
                label = name.split(b"\0")[0].decode("latin-1").replace("\t", " ")
                # The pitch it sounds at in the font: the root key less the tuning, of the zones that
                # play it, the most common (some play a sample an octave or a fifth from its note).
                sounding = [(root if 0 <= root < 128 else pitch) - tune - correction / 100.0
                            for root, tune in notes.get(index, {(-1, 0.0)})]
                rounded = [round(x) for x in sounding]
                note = max(set(rounded), key=rounded.count)
                exact = sum(x for x, r in zip(sounding, rounded) if r == note) / rounded.count(note)
                manifest.write("%s\t%s\t%d\t%d\t%d\t%d\t%d\t%.2f\n"
                               % (path, label, pitch, correction, rate, end - start, note, exact))
                written += 1
    print("written %d; skipped %s" % (written, skipped), file=sys.stderr)


if __name__ == "__main__":
    main()
