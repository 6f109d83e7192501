#include "bci/AlphaBetaProcessor.h"

AlphaBetaProcessor::AlphaBetaProcessor(QObject *parent)
    : Processor(parent)
{
}

void AlphaBetaProcessor::passThrough(vector<vector<float>> *in, vector<vector<float>> *out)
{
    *out = *in;
}
