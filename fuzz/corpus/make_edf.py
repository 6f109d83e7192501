#!/usr/bin/env python3
"""Makes the corpus of the EDF reader: small files field by field, sound ones and the faults that are met.

python3 fuzz/corpus/make_edf.py fuzz/corpus/edf
"""
import pathlib
import sys


def make(signals=(("EEG Cz", "uV", 8),), records=2, duration="1", tals=None, kind="EDF+C", bdf=False, count=None,
         patient="X X X X", recording="Startdate 02-JAN-2020 X X X", date="02.01.20", slot=48):
    plus = kind.endswith(("+C", "+D"))
    width = 3 if bdf else 2
    name = "BDF Annotations" if bdf else "EDF Annotations"
    low, high = ("-8388608", "8388607") if bdf else ("-32768", "32767")
    every = list(signals) + ([(name, "", slot // width)] if plus else [])
    field = lambda text, n: str(text).encode("latin1").ljust(n)[:n]
    out = (b"\xffBIOSEMI" if bdf else field("0", 8)) + field(patient, 80) + field(recording, 80) + field(date, 8)
    out += field("03.04.05", 8) + field(256 * (len(every) + 1), 8) + field(kind, 44)
    out += field(records if count is None else count, 8) + field(duration, 8) + field(len(every), 4)
    columns = [(16, lambda s: s[0]), (80, lambda s: ""), (8, lambda s: s[1]),
               (8, lambda s: "-1" if s[0] == name else "-3276.8"), (8, lambda s: "1" if s[0] == name else "3276.7"),
               (8, lambda s: low), (8, lambda s: high), (80, lambda s: ""), (8, lambda s: s[2]), (32, lambda s: "")]
    for n, text in columns:
        out += b"".join(field(text(signal), n) for signal in every)
    for record in range(records):
        for _, _, samples in signals:
            out += b"".join((i * 37 + record).to_bytes(width, "little") for i in range(samples))
        if plus:
            tal = tals[record] if tals else b"+%d\x14\x14\0" % record
            out += tal.ljust(slot, b"\0")[:slot]
    return out


note = b"+0\x14\x14\0+0.5\x151.25\x14note\x14\0"
later = b"+1\x14\x14\0"
sound = make(tals=[note, later])
FILES = {
    "plain": make(kind=""),
    "plus": sound,
    "bdf": make(kind="24BIT", bdf=True),
    "bdf_plus": make(kind="BDF+C", bdf=True, tals=[note, later]),
    "mixed_rates": make((("ECG", "mV", 20), ("Resp", "", 1), ("EMG", "uV", 7)), 3, "2.5", kind=""),
    "discontinuous": make(tals=[note, b"+7.25\x14\x14\0+8\x14two\x14three\x14\0"], kind="EDF+D"),
    "overlapping": make(tals=[note, b"+0.25\x14\x14\0"], kind="EDF+D"),
    "bdf_discontinuous": make(tals=[note, b"+9\x14\x14\0"], kind="BDF+D", bdf=True),
    "annotations_only": make((), 1, "0", tals=[note]),
    "unclosed": make(tals=[note, later], count=-1)[:-9],
    "never_begun": make(count=-1)[:700],
    "cut": sound[:-5],
    "too_long": sound + b"tail",
    "latin1": make((("EEG C\xfc", "\xb5V", 8),), tals=[note, later]),
    "loose_fields": make(patient="somebody", recording="ward 7", date="02/01/20", tals=[note, later]),
    "malformed_tal": make(tals=[b"+0\x14\x14\0++1\x14x\x14\0-0.5\x15\x14y\x14\0+3\x14", b"\0+1"]),
    "negative_onset": make(tals=[b"+0\x14\x14\0-2.5\x14before\x14\0", later]),
    "subsecond": make(tals=[b"+0.75\x14\x14\0+1.75\x14one later\x14\0", b"+1.75\x14\x14\0"]),
    "vast_record": make().replace(b"8       24      ", b"9999999924      "),
    "no_annotation_signal": make(kind="").replace(b" " * 44 + b"2  ", b"EDF+C" + b" " * 39 + b"2  "),
    "no_samples": make().replace(b"8       24      ", b"0       24      "),
    "page": b"<!DOCTYPE html><html>" * 20,
    "empty": b"",
}

if __name__ == "__main__":
    folder = pathlib.Path(sys.argv[1])
    folder.mkdir(parents=True, exist_ok=True)
    for name, content in FILES.items():
        (folder / f"{name}.edf").write_bytes(content)
