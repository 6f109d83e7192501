#!/usr/bin/env python3
"""Times scikit-learn's FastICA on the data of bench_numerics and prints how many times as long it takes.

Usage: OMP_NUM_THREADS=1 OPENBLAS_NUM_THREADS=1 fastica_reference.py build/release/bin/bench_numerics
(with numpy and scikit-learn). The tolerances mean different things: ours is of the change of the unit vector,
scikit-learn's of 1 - |cosine|, which is half its square. tol 5e-9 is the same angle as our 1e-4.
"""
import json
import os
import subprocess
import sys
import time

import numpy
from sklearn.decomposition import FastICA
from sklearn.decomposition._fastica import _logcosh

CHANNELS, SAMPLES = 32, 60000


def noise(number):
    z = number.astype(numpy.uint64) * numpy.uint64(0x9E3779B97F4A7C15)
    z = (z ^ (z >> numpy.uint64(30))) * numpy.uint64(0xBF58476D1CE4E5B9)
    z = (z ^ (z >> numpy.uint64(27))) * numpy.uint64(0x94D049BB133111EB)
    return ((z ^ (z >> numpy.uint64(31))) >> numpy.uint64(11)).astype(float) / 4503599627370496.0 - 1.0


def mixture():
    sources = []
    for channel in range(CHANNELS):
        u = noise((channel + 1) * 1000003 + numpy.arange(SAMPLES))
        sources.append(u if channel % 2 else numpy.copysign(numpy.log(1 - numpy.abs(u)), u))
    mixing = noise(numpy.arange(1, CHANNELS**2 + 1)).reshape(CHANNELS, CHANNELS)
    return (10 * mixing @ numpy.array(sources)).astype(numpy.float32)


def ours(program, epsilon):
    out = subprocess.run([program, "--benchmark_filter=fastIca", "--benchmark_format=json"], check=True,
                         capture_output=True, env={**os.environ, "BP_ICA_EPSILON": repr(epsilon)})
    result = json.loads(out.stdout)["benchmarks"][0]
    return result["real_time"] / 1000, result["iterations_per_run"]


def reference(data, tolerance, fun):
    """Seconds and iterations of all components, which are counted where the method evaluates its nonlinearity."""
    count = [0]

    def counted(x):
        count[0] += 1
        return fun(x)

    ica = FastICA(algorithm="deflation", fun=counted, tol=tolerance, max_iter=1000, whiten="unit-variance",
                  random_state=1)
    start = time.perf_counter()
    ica.fit(data)
    return time.perf_counter() - start, count[0]


def vectorised(x):
    """tanh as one expression; "logcosh" itself takes the mean of its derivative in a Python loop over the samples."""
    g = numpy.tanh(x, x)
    return g, (1 - g * g).mean()


def logcosh(x):
    return _logcosh(x, {})


def report(name, own, other):
    (seconds, iterations), (their_seconds, their_iterations) = own, other
    print("  scikit-learn, %s: %.2f s, %d iterations; %.1f times as long, per iteration %.1f times"
          % (name, their_seconds, their_iterations, their_seconds / seconds,
             their_seconds / their_iterations / seconds * iterations), flush=True)


def main():
    data = numpy.ascontiguousarray(mixture().T)
    own = ours(sys.argv[1], 1e-4)
    print("ours, tolerance 1e-4: %.3f s, %d iterations" % own, flush=True)
    report("float32, the same angle, vectorised", own, reference(data, 5e-9, vectorised))
    report("float64, the same angle, vectorised", own, reference(data.astype(float), 5e-9, vectorised))
    report("float64, tol 1e-4, vectorised", own, reference(data.astype(float), 1e-4, vectorised))
    report("float64, tol 1e-4, logcosh", own, reference(data.astype(float), 1e-4, logcosh))


if __name__ == "__main__":
    main()
