#!/usr/bin/python3
"""Cross-validates scikit-learn's linear discriminant and nearest neighbours on the features and blocks that
`bioprocessing train --features FILE` wrote, leaving out the same training windows next to a test block.

    classifiers_reference.py FILE WINDOW_SAMPLES [NEIGHBOURS]
"""
import sys

import numpy
from sklearn.discriminant_analysis import LinearDiscriminantAnalysis
from sklearn.neighbors import KNeighborsClassifier
from sklearn.pipeline import make_pipeline
from sklearn.preprocessing import StandardScaler


def read(path):
    rows = [line.rstrip("\n").split("\t") for line in open(path, encoding="utf-8")][1:]
    labels = numpy.array([row[0] for row in rows])
    block, recording, begin = (numpy.array([int(row[i]) for row in rows]) for i in (1, 2, 3))
    return labels, block, recording, begin, numpy.array([[float(x) for x in row[4:]] for row in rows])


def folds(block, recording, begin, window):
    for fold in range(block.max() + 1):
        test = numpy.flatnonzero(block == fold)
        touches = (recording[:, None] == recording[test]) & (abs(begin[:, None] - begin[test]) < window)
        yield numpy.flatnonzero((block != fold) & ~touches.any(axis=1)), test


def main():
    labels, block, recording, begin, features = read(sys.argv[1])
    window = int(sys.argv[2])
    neighbours = int(sys.argv[3]) if len(sys.argv) > 3 else 5
    models = {
        "linear discriminant": LinearDiscriminantAnalysis(),
        f"{neighbours} nearest neighbours": make_pipeline(StandardScaler(), KNeighborsClassifier(neighbours)),
    }
    for name, model in models.items():
        rates = []
        for train, test in folds(block, recording, begin, window):
            rates.append((model.fit(features[train], labels[train]).predict(features[test]) == labels[test]).mean())
        print(f"{name}: {100 * numpy.mean(rates):.1f} % ± {100 * numpy.std(rates, ddof=1):.1f} % per block")


main()
