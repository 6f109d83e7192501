#!/usr/bin/env python3
"""Writes butterworth_golden.inc, the coefficients that the tests expect of ButterworthFilter::Butter.

Works on poles and zeros in double precision, unlike the library, which re-maps polynomials. The poles are rounded to
32-bit floats where the design says so. Usage: butterworth_reference.py > butterworth_golden.inc
"""
import cmath
import math
import struct

CASES = [  # high-pass, order, cut-off, sample rate
    (0, 4, 30.0, 250.0),
    (0, 4, 70.0, 500.0),
    (0, 3, 10.0, 250.0),
    (0, 2, 0.5, 100.0),
    (0, 40, 40.0, 500.0),
    (1, 4, 0.5, 250.0),
    (1, 4, 1.0, 500.0),
    (1, 2, 62.5, 250.0),
    (1, 6, 20.0, 1000.0),
]
MAX_ORDER = 20


def to_float(x):
    return struct.unpack("f", struct.pack("f", x))[0]


def prototype_poles(order, w):
    warped = math.tan(math.pi * w)
    for k in range(order // 2):
        theta = (2 * k + 1) * math.pi / (2 * order)
        p = complex(to_float(-warped * math.cos(theta)), to_float(warped * math.sin(theta)))
        # The system's own mapping: the bilinear one, (1 + p) / (1 - p), has 1 - 2 Re p + |p|^2 below the line.
        below = 1 - p.real + abs(p) ** 2
        yield complex(to_float((1 - abs(p) ** 2) / below), to_float(2 * p.imag / below))


def design(high_pass, order, cut_off, rate):
    order = min(order + order % 2, MAX_ORDER)
    target = cut_off / rate
    gain, sections = 1.0, []
    for pole in prototype_poles(order, 1 - target if high_pass else target):
        b0 = abs(1 - pole) ** 2 / 4  # unity gain at 0 Hz over a double zero at z = -1
        zero = -1.0
        if high_pass:
            # z^-1 -> -(z^-1 + alpha) / (1 + alpha z^-1), an involution: poles and zeros go through it as they are.
            alpha = 1 / math.cos(math.pi * (1 - 2 * target))
            b0 *= ((1 - alpha) / abs(1 + alpha * pole)) ** 2
            pole = -(pole + alpha) / (1 + alpha * pole)
            zero = 1.0
        gain *= b0
        sections.append((1.0, -2 * zero, zero * zero, 1.0, -2 * pole.real, abs(pole) ** 2))
    return gain, sections


def response_db(gain, sections, frequency, rate):
    z1 = cmath.exp(-2j * math.pi * frequency / rate)
    h = gain
    for b0, b1, b2, a0, a1, a2 in sections:
        h *= (b0 + b1 * z1 + b2 * z1 * z1) / (a0 + a1 * z1 + a2 * z1 * z1)
    return 20 * math.log10(max(abs(h), 1e-300))


def main():
    print("// Written by butterworth_reference.py: high-pass, order, cut-off, rate, gain, rows b0 b1 b2 a0 a1 a2.")
    for case in CASES:
        gain, sections = design(*case)
        rows = ", ".join("{%s}" % ", ".join("%.9g" % value for value in row) for row in sections)
        print("{%d, %d, %.9g, %.9g, %.9g, {%s}}," % (*case, gain, rows))


if __name__ == "__main__":
    main()
