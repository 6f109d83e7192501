#pragma once

#include "common/BPExport.h"
#include "common/MetaTypes.h"

class QString;

/// Statistics, distances, normalisation, resampling, smoothing and text files of float vectors. Sums run in double,
/// those of eucDist apart. All functions may be called from any thread.
///
/// Nothing here fails on empty input: sums, means, deviations, extremes, medians and distances of nothing are 0.
class BIOPROCESSING_EXPORT utilities
{
public:
    static void Add(vector<float> &values, float value);
    static void Subtract(vector<float> &values, float value);

    static float Sum(const vector<float> &values);
    static int Sum(const vector<int> &values);
    static float Mean(const vector<float> &values);
    /// Sample standard deviation, divisor n − 1; 0 for fewer than two values.
    static float StdDev(const vector<float> &values);

    static float Max(const vector<float> &values);
    static float Min(const vector<float> &values);
    /// The first index of the maximum; −1 when empty.
    static int IndexOfMax(const vector<float> &values);

    /// Sorts the values, NaN last, and returns the middle one, or the mean of the two in the middle.
    static float Median(vector<float> &values);
    /// The same, with integer division.
    static int Median(vector<int> &values);

    /// Euclidean distance. Vectors of different lengths give 0 and a message on the debug stream.
    ///
    /// The squares are added in sixteen float sums: the relative error stays below (n / 16 + 8) · 6e-8; a sum beyond
    /// 3e38 gives infinity.
    static float eucDist(const vector<float> &a, const vector<float> &b);
    /// 1 − a·b / (‖a‖ ‖b‖); 1 when one of them is all zeros. Different lengths give 0 and a message.
    static float cosineDist(const vector<float> &a, const vector<float> &b);

    /// Normalises columns (features) over rows (examples): (x − mean) ÷ sample standard deviation, 0 in a column that
    /// doesn't vary.
    /// @param in         rows of one length; otherwise all outputs are empty
    /// @param means, deviations  one per column
    /// @param limit      greater than 0: results above it are artefacts and become the column's mean; their number goes
    ///                   to the debug stream in any case
    static void normFeatures(const vector<vector<float>> &in, vector<float> &means, vector<float> &deviations,
                             vector<vector<float>> &out, float limit);

    /// Resamples a signal to another length, see bp::resampleToLength. An empty signal gives zeros.
    /// @param halfWidth  of the kernel in input samples, at least 1
    static void resampleToLen(const float *in, unsigned int inLength, float *out, unsigned int outLength,
                              int halfWidth);
    static void resampleToLen(const vector<float> &in, vector<float> &out, unsigned int outLength, int halfWidth);

    /// Root mean square of the samples [i − window / 2, i − window / 2 + window), cut where the signal ends.
    /// The time does not depend on the length of the window.
    /// @param window  in samples, at least 1
    static void smoothByRMS(const float *in, float *out, unsigned int length, unsigned int window);
    static void smoothByRMS(const vector<float> &in, vector<float> &out, unsigned int window);

    /// Text files: a line per row, numbers with a point, a blank between them; a vector is one line.
    ///
    /// Reading takes any white space and skips empty lines; words, "nan" and "inf" among them, and rows of different
    /// lengths are rejected. On failure: one trace line, false, and neither file nor argument is changed.
    static bool loadSomeMat(const QString &path, vector<vector<float>> &matrix);
    static bool loadSomeMat(const QString &path, vector<vector<int>> &matrix);
    static bool saveSomeMat(const QString &path, const vector<vector<float>> &matrix);
    static bool saveSomeMat(const QString &path, const vector<vector<int>> &matrix);
    static bool saveSomeVec(const QString &path, const vector<float> &values);
    static bool saveSomeVec(const QString &path, const vector<int> &values);
};
