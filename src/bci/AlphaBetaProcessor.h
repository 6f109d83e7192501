#pragma once

#include "bci/Processor.h"

/// Hands the features of AlphaBetaPreprocessor on as they are. Nothing to train, no results; always valid.
class BIOPROCESSING_EXPORT AlphaBetaProcessor : public Processor
{
    Q_OBJECT
public:
    explicit AlphaBetaProcessor(QObject *parent = nullptr);

    void passThrough(vector<vector<float>> *in, vector<vector<float>> *out) override;
};
