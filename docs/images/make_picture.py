#!/usr/bin/env python3
"""Records 40 s of the simulator and draws what came out: make_picture.py BIOPROCESSING OUT.svg (standard library only)"""
import cmath
import json
import math
import os
import subprocess
import sys
import tempfile

CHANNELS = ["Fp1", "C3", "O1", "O2", "ECG"]
FIRST, LAST = 5, 25  # seconds of the traces that are shown
INK, CLOSED, OPEN, ALPHA = "#333", "#dcefd0", "#eef1f5", "#5a9a12"


# An alpha index of the occipital channels alone; what is not said has its default (docs/algorithms.md).
INDEX = """<algo><name>SpectrumNorm</name><depn/><desc>alpha</desc><prop>
<channel>O1;O2</channel><time>2</time><calc_mode>1</calc_mode></prop></algo>"""


def record(host, folder):
    """The recording's path, and (second, alpha index) as the program told them."""
    path, index = os.path.join(folder, "me.edf"), os.path.join(folder, "alpha.xml")
    with open(index, "w", encoding="utf-8") as file:
        file.write(INDEX)
    run = subprocess.run([host, "acquire", "--seconds", "40", "--record", path, "--algorithms", index, "--json"],
                         stdout=subprocess.PIPE, text=True, check=True)
    lines = [json.loads(line) for line in run.stdout.splitlines()]
    return path, [(line["time"], line["alpha"]) for line in lines if "time" in line and "alpha" in line]


def read_edf(path):
    """Label → samples in µV. The recorder stores the inverse, as this undoes."""
    with open(path, "rb") as file:
        data = file.read()
    count = int(data[252:256])
    width = {"label": 16, "transducer": 80, "unit": 8, "low": 8, "high": 8, "dlow": 8, "dhigh": 8, "filter": 80, "n": 8}
    field, at = {}, 256
    for name, size in width.items():
        field[name] = [data[at + i * size:at + (i + 1) * size].decode().strip() for i in range(count)]
        at += count * size
    counts = [int(n) for n in field["n"]]
    signals = {label: [] for label in field["label"]}
    at = int(data[184:192])
    for _ in range(int(data[236:244])):
        for i, label in enumerate(field["label"]):
            if "Annotations" not in label:
                gain = float(field["high"][i]) / float(field["dhigh"][i])
                raw = memoryview(data[at:at + 2 * counts[i]]).cast("h")
                signals[label] += [-gain * value for value in raw]
            at += 2 * counts[i]
    return signals, counts[0]


def spectrum(samples, rate, parts):
    """Mean amplitude of windows of 2 s, Hann, 0.5 to 30 Hz, over the given seconds."""
    n, bands = 2 * rate, range(1, 61)
    hann = [0.5 - 0.5 * math.cos(2 * math.pi * k / n) for k in range(n)]
    sums, windows = [0.0] * len(bands), 0
    for begin, end in parts:
        for start in range(begin * rate, end * rate - n + 1, n):
            window = [hann[k] * samples[start + k] for k in range(n)]
            for i, band in enumerate(bands):
                turn = cmath.exp(-2j * math.pi * band / n)
                value = 0j
                for sample in reversed(window):
                    value = value * turn + sample
                sums[i] += 4 * abs(value) / n
            windows += 1
    return [(band / 2, total / windows) for band, total in zip(bands, sums)]


def line(points, color, width=1):
    """Whole tenths, and each point relative to the one before: a fifth of the size."""
    steps = [(round(10 * x), round(10 * y)) for x, y in points]
    text = f"M{steps[0][0]} {steps[0][1]}l" + " ".join(
        f"{x - a} {y - b}" for (a, b), (x, y) in zip(steps, steps[1:]))
    return f'<path transform="scale(.1)" d="{text}" stroke="{color}" stroke-width="{10 * width}"/>'


def text(x, y, words, anchor="start", color=INK):
    return f'<text x="{x:g}" y="{y:g}" text-anchor="{anchor}" fill="{color}">{words}</text>'


def box(x, y, width, height, color):
    return f'<rect x="{x:g}" y="{y:g}" width="{width:g}" height="{height:g}" fill="{color}"/>'


def draw(signals, rate, alpha):
    out = []
    scale = 760 / (LAST - FIRST)
    left, right = lambda s: 50 + (s - FIRST) * scale, 810
    for begin in range(0, 40, 10):
        a, b = max(begin, FIRST), min(begin + 10, LAST)
        if a < b:
            closed = begin % 20 == 10
            out.append(box(left(a), 22, (b - a) * scale, 300, CLOSED if closed else OPEN))
            out.append(text(left(a) + 4, 16, "eyes closed" if closed else "eyes open"))
    for row, name in enumerate(CHANNELS):
        label = next(key for key in signals if key.split()[-1] == name)
        middle, gain = 55 + row * 60, 0.45 if name != "ECG" else 0.03
        cut = signals[label][FIRST * rate:LAST * rate]
        mean = sum(cut) / len(cut)
        out.append(text(44, middle + 4, name, "end"))
        out.append(line([(left(FIRST + k / rate), middle - max(-33, min(33, gain * (cut[k] - mean))))
                         for k in range(0, len(cut), 2)], INK, 0.7))
    out += [text(left(s), 336, f"{s} s", "middle") for s in range(FIRST, LAST + 1, 5)]
    o2 = signals[next(key for key in signals if key.split()[-1] == "O2")]
    curves = [(spectrum(o2, rate, [(0, 10), (20, 30)]), "#888"), (spectrum(o2, rate, [(10, 20), (30, 40)]), ALPHA)]
    top = max(value for curve, _ in curves for _, value in curve)
    out += [box(50, 368, 330, 130, "#fafafa"), text(50, 362, "O2, amplitude by frequency: eyes open, "),
            text(294, 362, "closed", color=ALPHA)]
    out += [line([(50 + f * 11, 496 - value / top * 120) for f, value in curve], color, 1.3) for curve, color in curves]
    out += [text(50 + f * 11, 514, f"{f} Hz", "middle") for f in (0, 10, 20, 30)]
    for begin in range(0, 40, 10):
        out.append(box(470 + begin * 8.5, 368, 85, 130, CLOSED if begin % 20 == 10 else OPEN))
    out += [text(470, 362, "alpha index of O1 and O2, live"), text(464, 380, "40", "end"),
            text(464, 500, "0", "end")]
    out.append(line([(470 + s * 8.5, 496 - value * 3) for s, value in alpha], ALPHA, 1.5))
    out += [text(470 + s * 8.5, 514, f"{s} s", "middle") for s in range(0, 41, 10)]
    return ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 836 524" font-family="sans-serif" font-size="12">\n'
            '<rect width="836" height="524" fill="#fff"/>\n<g fill="none" stroke-linejoin="round">\n'
            + "\n".join(out) + "\n</g>\n</svg>\n")


if __name__ == "__main__":
    with tempfile.TemporaryDirectory() as folder:
        recording, index = record(sys.argv[1], folder)
        recorded, hertz = read_edf(recording)
    with open(sys.argv[2], "w", encoding="utf-8") as picture:
        picture.write(draw(recorded, hertz, index))
