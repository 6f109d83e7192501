#pragma once

#include "common/BPExport.h"
#include "common/MetaTypes.h"

/// Features of one channel of EEG or EMG. Sums run in double; any thread. An empty signal has the feature 0.
class BIOPROCESSING_EXPORT SignalFeatures
{
public:
    /// Mean absolute value.
    static float MAV(const vector<float> &signal);
    static float RMS(const vector<float> &signal);
    /// Divisor n − 1.
    static float Variance(const vector<float> &signal);
    /// Sum of the absolute differences of neighbours.
    static float WaveformLength(const vector<float> &signal);
    /// Changes between above and below zero; zeros in between are passed over.
    static int ZeroCrossings(const vector<float> &signal);
    /// Median of the n largest samples, of all when there are fewer.
    static float MedianOfMaxN(const vector<float> &signal, unsigned int n);

    /// Fractal dimension after T. Higuchi, Physica D 31 (1988): L(k) is the mean length of the k curves of every k-th
    /// sample, k = 1 … kMax, and the dimension the slope of ln L(k) over ln(1/k).
    /// @param kMax  at most half the signal's length; more is cut
    /// @param dimension  becomes 0 when fewer than two lengths are above zero (a constant or very short signal)
    static void HiguchiFD(const vector<float> &signal, unsigned int kMax, float *dimension);
    /// The same measure on Higuchi's own, nearly logarithmic steps (1, 2, 3, 4, then ⌊2^((j−1)/4)⌋, j = 11, 12, …), so
    /// that the large k don't outweigh the small ones, and with L(k) from the mean difference of all pairs k apart.
    static float AlternativeHiguchiFD(const vector<float> &signal, int kMax);

    /// Least-squares polynomial, by QR decomposition (Householder) over x scaled to [−1, 1].
    /// @param coefficients  degree + 1, that of xⁱ at i
    /// @throws std::invalid_argument "X and Y vector sizes do not match"
    /// @throws std::length_error "invalid matrix size" for a negative degree, or fewer points than coefficients
    static void PolyFit(const vector<float> &x, const vector<float> &y, int degree, vector<float> &coefficients);
    /// The polynomial's values, in Horner's order.
    static void PolyVal(const vector<float> &coefficients, const vector<float> &x, vector<float> &y);

    /// Autoregressive model x[t] = Σ a[k] x[t − 1 − k] + e[t] after J. P. Burg (1975): the reflection coefficients that
    /// minimise forward and backward prediction error together. Always stable.
    /// @param removeMean    takes the mean away first; an offset looks like a pole at 0 Hz otherwise
    /// @param coefficients  order of them; 0 where the signal is too short or too simple to tell
    static void calcAR(const vector<float> &signal, unsigned int order, bool removeMean, vector<float> &coefficients);
};
