#include "bci/EMGBCIPreprocessor.h"

#include "bci/numerics/WindowFilter.h"

#include <algorithm>
#include <cmath>

EMGBCIPreprocessor::EMGBCIPreprocessor(int cutOff, QObject *parent)
    : EMGEnvelopePreprocessor(cutOff, parent)
{
}

void EMGBCIPreprocessor::doPreprocess(vector<vector<float>> *in, vector<vector<float>> *out)
{
    prepareFilter();
    out->resize(in->size());
    for (std::size_t row = 0; row < in->size(); ++row) {
        if (!spoilEnvelope((*in)[row], (*out)[row])) {
            getRms((*in)[row], (*out)[row]);
            m_filter->run((*out)[row]);
        }
    }
}

void EMGBCIPreprocessor::getRms(const vector<float> &row, vector<float> &rectified)
{
    rectified.resize(row.size());
    std::transform(row.begin(), row.end(), rectified.begin(), [](float sample) { return std::abs(sample); });
}
