#!/usr/bin/env python3
"""Writes golden/heartrate.txt, the beats that the tests expect of ElectroCardiogram on a synthetic electrocardiogram.

Double precision throughout, the whole signal at once instead of sliding buffers: beats are looked for in the filtered
signal, block by block only where the method says so. Fails when a decision is so close that the library's floats could
take it the other way. Usage: heartrate_reference.py > golden/heartrate.txt
"""
import math
import sys

from butterworth_reference import design

CASES = [  # name, rate, block, ampMin, seconds, seed
    ("standard", 250, 12, 0.25, 60, 28),
    ("high", 360, 18, 2.5, 60, 11),
    ("blocks", 500, 100, 2.5, 20, 3),
]
BPM_MIN, BPM_MAX, HIGH_PASS, LOW_PASS = 30.0, 150.0, 0.2, 40.0


class Random:
    def __init__(self, seed):
        self.state = seed

    def below(self, limit):
        self.state = (self.state * 1103515245 + 12345) % 2**31
        return (self.state >> 16) % limit


def wave(distance, half_width, height):
    return int(height * max(0, half_width - abs(distance)) / half_width)


def signal(rate, seconds, seed):
    """R peaks down, in whole µV, as TestHeartRate.cpp makes it."""
    random = Random(seed)
    beats, position = [], rate // 2
    while position < rate * seconds:
        beats.append(position)
        early = len(beats) % 9 == 0  # closer than the maximum rate allows
        position += rate * 7 // 20 if early else rate * 7 // 10 + random.below(rate * 3 // 10)
    samples = [random.below(21) - 10 for _ in range(rate * seconds)]
    for beat in beats:
        for i in range(max(0, beat - rate // 2), min(len(samples), beat + rate // 2)):
            samples[i] -= wave(i - beat, rate // 25, 1000) + wave(i - beat - rate * 3 // 10, rate * 4 // 25, 150)
    return samples


def sections_of(rate):
    for high_pass, cut_off in ((1, HIGH_PASS), (0, LOW_PASS)):
        gain, sections = design(high_pass, 4, cut_off, rate)
        for section in sections:
            yield section, 1.0
        yield (1, 0, 0, 1, 0, 0), gain
    r, cosine = 1 - 3 * 3.0 / rate, math.cos(2 * math.pi * 50.0 / rate)
    k = (1 - 2 * r * cosine + r * r) / (2 - 2 * cosine)
    yield (k, -2 * k * cosine, k, 1, -2 * r * cosine, r * r), 1.0


def filtered(samples, rate):
    for (b0, b1, b2, _, a1, a2), gain in sections_of(rate):
        s1 = s2 = 0.0  # transposed form, unlike the library
        out = []
        for x in samples:
            y = b0 * x + s1
            s1, s2 = b1 * x - a1 * y + s2, b2 * x - a2 * y
            out.append(y * gain)
        samples = out
    return samples


def beats_of(samples, rate, block, amplitude):
    raw = [x / 100000 * -1 for x in samples]
    smooth = filtered(raw, rate)
    before, after, search = int(rate * 0.02), int(rate * 0.025), int(rate * 0.15)
    threshold = amplitude / 1000 / math.sqrt(2)
    last, out, closest = 0, [], 1.0
    for end in range(block, len(samples) + 1, block):
        if min(end, int(120 * rate / BPM_MIN + 1)) <= before + 1 + after + block:
            continue
        for a in range(end - after - block, end - after):
            rise, fall = smooth[a] - smooth[a - before], smooth[a] - smooth[a + after]
            window = smooth[a - before:a] + smooth[a + 1:a + after + 1]
            if max(window) < smooth[a]:
                closest = min(closest, abs(min(rise, fall) / threshold - 1))
            if min(rise, fall) > threshold:
                closest = min(closest, abs(smooth[a] - max(window)) / threshold)
            if max(window) >= smooth[a] or rise < threshold or fall < threshold:
                continue
            recent = raw[a - search + 1:a + 1]
            peak = a - search + 1 + recent.index(max(recent))
            seconds = (peak - last) / rate
            if last and not 60 / BPM_MAX <= seconds <= 60 / BPM_MIN:
                break
            if last:
                out.append((60 / seconds, seconds * 1000, peak))
            last = peak
    return out, closest


def main():
    for name, rate, block, amplitude, seconds, seed in CASES:
        beats, closest = beats_of(signal(rate, seconds, seed), rate, block, amplitude)
        print(name, len(beats), "beats, closest decision", closest, file=sys.stderr)
        assert closest > 1e-3, "a decision is too close: take another seed"
        print("case %s %d %d %g %d %d" % (name, rate, block, amplitude, seconds, seed))
        for beat in beats:
            print("%.7g %.7g %d" % beat)


if __name__ == "__main__":
    main()
