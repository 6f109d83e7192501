#!/usr/bin/env python3
"""Writes golden/numerics.txt, inputs and expected outputs of the matrix tools, features and distances.

Double precision with numpy and scipy, by the definitions: inverses by numpy's solver, Fisher's directions by the
generalised eigenvalue problem, Burg's method by a search for the least prediction error of each order. A line is a
name, rows, columns and the values, row by row. Usage: numerics_reference.py > golden/numerics.txt
"""
import numpy as np
from scipy import linalg, spatial

random = np.random.default_rng(20)


def write(name, values):
    values = np.atleast_2d(np.asarray(values, dtype=float))
    print(name, *values.shape, " ".join("%.9g" % value for value in values.ravel()))


def floats(values):
    return np.asarray(values, dtype=np.float32).astype(float)


def inverses():
    matrices = {
        "single": [[-4.0]],
        "swap": [[0, 2], [3, 1]],
        "random5": random.normal(size=(5, 5)),
        "random12": random.normal(size=(12, 12)) * 100,
        "scales": np.diag([1e6, 1e-6, 1]) + np.diag([1, 1e-7], 1),
        "hilbert": linalg.hilbert(5),
    }
    for name, matrix in matrices.items():
        matrix = floats(matrix)
        write("inverse.%s.in" % name, matrix)
        write("inverse.%s.out" % name, np.linalg.inv(matrix))
        write("inverse.%s.sign" % name, np.sign(np.linalg.det(matrix)))


def moments():
    data = floats(random.normal(size=(30, 4)) @ random.normal(size=(4, 4)) + [1000, -5, 0, 1e-3])
    labels = random.integers(0, 3, 30) * 2 - 1
    write("moments.in", data)
    write("moments.labels", labels)
    write("moments.covariance", np.cov(data, rowvar=False))
    write("moments.biased", np.cov(data, rowvar=False, bias=True))
    one = data[labels == 1]
    write("moments.mean1", one.mean(axis=0))
    write("moments.covariance1", np.cov(one, rowvar=False))
    write("moments.scatter1", np.cov(one, rowvar=False) * (len(one) - 1))
    write("moments.within", sum(np.cov(data[labels == k], rowvar=False, bias=True) * sum(labels == k)
                                for k in (-1, 1, 3)))


def eigen():
    for name, matrix in {
        "random6": random.normal(size=(6, 6)),
        "diagonal": np.diag([3.0, -1, 7]),
        "rank2": np.outer([1, 2, 3, 4], [1, 2, 3, 4]) + np.outer([4, -3, 2, -1], [4, -3, 2, -1]),
    }.items():
        matrix = floats(matrix + matrix.T)
        values, vectors = np.linalg.eigh(matrix)
        write("eigen.%s.in" % name, matrix)
        write("eigen.%s.values" % name, values[::-1])
        write("eigen.%s.vectors" % name, vectors.T[::-1])
    data = floats(random.normal(size=(50, 6)) * [9, 6, 4, 3, 2, 1] @ linalg.qr(random.normal(size=(6, 6)))[0] + 20)
    values, vectors = np.linalg.eigh(np.cov(data, rowvar=False))
    write("pca.in", data)
    write("pca.values", values[::-1])
    write("pca.vectors", vectors.T[::-1])


def discriminants():
    for name, classes, scale in (("two", 2, [1, 1, 1]), ("units", 2, [1e4, 1, 1e-3]), ("four", 4, [1, 2, 3, 4, 5])):
        size = len(scale)
        labels = np.repeat(np.arange(classes), np.arange(20, 20 + classes))
        data = random.normal(size=(len(labels), size)) @ (np.eye(size) + random.normal(size=(size, size)) / 4)
        data = floats((data + 3 * random.normal(size=(classes, size))[labels]) * scale)
        means = np.array([data[labels == k].mean(axis=0) for k in range(classes)])
        within = sum(np.cov(data[labels == k], rowvar=False) * (sum(labels == k) - 1) for k in range(classes))
        away = means[labels] - data.mean(axis=0)
        _, vectors = linalg.eigh(away.T @ away, within)
        rows = vectors.T[::-1][: classes - 1]
        rows /= np.linalg.norm(rows, axis=1, keepdims=True)
        rows *= np.sign(rows @ (means[0] - data.mean(axis=0)))[:, None]
        write("fld.%s.in" % name, data)
        write("fld.%s.labels" % name, labels)
        write("fld.%s.out" % name, rows)
        if classes == 2:
            weights = np.linalg.solve(within / (len(labels) - 2), means[0] - means[1])
            bias = np.log(20 / 21) - weights @ (means[0] + means[1]) / 2
            write("fld.%s.lda" % name, np.append(weights, bias))


def higuchi(x, k_max):
    """As in the paper, with its indices from 1."""
    n, lengths = len(x), []
    at = dict(enumerate(x, 1))
    for k in range(1, k_max + 1):
        curves = []
        for m in range(1, k + 1):
            steps = (n - m) // k
            curves.append(sum(abs(at[m + i * k] - at[m + (i - 1) * k]) for i in range(1, steps + 1))
                          * (n - 1) / (steps * k) / k)
        lengths.append(np.mean(curves))
    return np.polyfit(np.log(1 / np.arange(1, k_max + 1)), np.log(lengths), 1)[0]


def higuchi_of_pairs(x, steps):
    lengths = [np.mean(np.abs(x[k:] - x[:-k])) * (len(x) - 1) / k**2 for k in steps]
    return np.polyfit(-np.log(steps), np.log(lengths), 1)[0]


def burg(x, order):
    """Prediction polynomials by the definition: of each order, the reflection with the least error of both ways."""
    a = np.array([1.0])

    def extended(reflection):
        return np.append(a, 0) - reflection * np.append(a, 0)[::-1]

    for _ in range(order):
        def error(reflection):
            polynomial = extended(reflection)
            return sum(np.sum(np.convolve(y, polynomial, "valid") ** 2) for y in (x, x[::-1]))
        # A parabola in the reflection: three points give its lowest.
        low, middle, high = error(-1), error(0), error(1)
        a = extended((low - high) / (2 * (low - 2 * middle + high)))
    return -a[1:]


def features():
    walk = np.cumsum(random.normal(size=400))
    sine = np.sin(np.arange(250) * 0.1) * 50 + 7
    x = {"walk": walk, "noise": random.normal(size=301), "sine": sine + random.normal(size=250)}
    for name, signal in x.items():
        signal = floats(signal)
        write("features.%s.in" % name, signal)
        write("features.%s.scalars" % name, [
            np.mean(np.abs(signal)), np.sqrt(np.mean(signal**2)), np.var(signal, ddof=1),
            np.sum(np.abs(np.diff(signal))), np.sum(np.diff(np.sign(signal[signal != 0])) != 0),
            np.median(np.sort(signal)[-7:]), np.median(np.sort(signal)[-8:]), higuchi(signal, 10),
            higuchi_of_pairs(signal, np.array([1, 2, 3, 4, 5, 6, 8, 9, 11, 13, 16, 19])),
            np.mean(signal), np.std(signal, ddof=1), np.median(signal), np.max(signal), np.min(signal),
            np.argmax(signal)])
        write("features.%s.ar" % name, burg(signal, 6))
        write("features.%s.ar0" % name, burg(signal - signal.mean(), 6))
        write("features.%s.smooth" % name, [
            np.sqrt(np.mean(signal[max(0, i - 3):i + 4] ** 2)) for i in range(len(signal))])


def fits():
    for name, x, degree in (("line", [1, 2, 4], 1), ("exact", [-1, 0, 2, 3], 3), ("far", np.arange(1000, 1050), 2),
                            ("high", np.linspace(-2, 2, 60), 9)):
        x = floats(x)
        y = floats(random.normal(size=len(x)) * 10)
        write("fit.%s.x" % name, x)
        write("fit.%s.y" % name, y)
        write("fit.%s.values" % name, np.polynomial.Polynomial.fit(x, y, degree)(x))
        write("fit.%s.degree" % name, degree)


def distances():
    for size in (1, 15, 16, 17, 1280):
        a, b = floats(random.normal(size=(2, size)) * 30 + 5)
        write("distance.%d.in" % size, [a, b])
        write("distance.%d.out" % size, [spatial.distance.euclidean(a, b), spatial.distance.cosine(a, b)])
    rows = floats(random.normal(size=(40, 3)) * [1, 100, 1e-3] + [0, 5000, 1])
    write("norm.in", rows)
    write("norm.means", rows.mean(axis=0))
    write("norm.deviations", rows.std(axis=0, ddof=1))
    z = (rows - rows.mean(axis=0)) / rows.std(axis=0, ddof=1)
    write("norm.out", z)
    write("norm.limited", np.where(z > 1.5, rows.mean(axis=0), z))
    write("norm.artefacts", np.sum(z > 1.5))


inverses()
moments()
eigen()
discriminants()
features()
fits()
distances()
