#!/usr/bin/env python3
"""Writes golden/spectrum.txt, what the tests expect of spectra and rhythm indices, computed in double precision by numpy.

The input is integers of a linear congruential generator, which the tests produce too. One line each: a key, then values.
Usage: spectrum_reference.py > golden/spectrum.txt
"""
import numpy as np

# key, samples, taper fraction, base of the taper's cosine (0.5 Hann, 0.54 Hamming), every how many bins are kept
SPECTRA = [
    ("whole500", 500, 0.5, 0.5, 1),
    ("edges500", 500, 0.1, 0.5, 4),
    ("hamming1000", 1000, 0.25, 0.54, 8),
    ("bare4096", 4096, 0.0, 0.5, 32),
    ("whole2047", 2047, 0.5, 0.5, 32),
    ("odd129", 129, 0.3, 0.5, 2),
    ("few17", 17, 0.5, 0.5, 1),
    ("few5", 5, 0.5, 0.5, 1),
]
RATE = 250.0
LOW, HIGH = 8.0, 14.0


def samples(count, seed):
    x = seed
    out = []
    for _ in range(count):
        x = (1103515245 * x + 12345) % 2**31
        out.append((x >> 16) % 2001 - 1000)
    return np.array(out, dtype=float)


def spectrum(x, fraction, base):
    n = len(x)
    x = x - x.mean()
    m = int(np.float32(2 * n) * np.float32(fraction))
    w = base - (1 - base) * np.cos(2 * np.pi * np.arange(m) / m) if m else np.zeros(0)
    weights = np.ones(n)
    weights[: m // 2] = w[: m // 2]
    weights[n - (m - m // 2):] = w[m // 2:]
    correction = n / weights.sum()
    size = 1 << (n - 1).bit_length()
    return 2 * np.abs(np.fft.rfft(x * weights * correction, size)) / n


def smoothed(row):
    padded = np.concatenate(([np.nan], row**2, [np.nan]))
    return np.sqrt(np.nanmean(np.stack([padded[:-2], padded[1:-1], padded[2:]]), axis=0))


def put(key, values):
    print(key, *("%.9g" % v for v in np.atleast_1d(values)))


def main():
    for key, count, fraction, base, every in SPECTRA:
        put(key, spectrum(samples(count, count), fraction, base)[::every])
    put("smoothedPower500", smoothed(spectrum(samples(500, 500), 0.5, 0.5) ** 2)[::4])

    for seed in (1, 2):  # the channels of a window of 3 s
        s = spectrum(samples(750, seed), 0.5, 0.5)
        f = np.arange(len(s)) * (RATE / 2) / (len(s) - 1)
        inside = (f >= LOW) & (f < HIGH)
        b = s[inside]
        power = (b**2).sum()
        put("modes%d" % seed, [100 * power / (s**2).sum(), power, power / f[1], b.sum(), b.max(), b.mean(),
                               (f[inside] * b).sum() / b.sum(), f[inside][b.argmax()]])
        put("percent%d" % seed, 100 * b.sum() / s.sum())


main()
