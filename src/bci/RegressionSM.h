#pragma once

#include "bci/SolverModel.h"

/// The family of models that estimate a value.
class BIOPROCESSING_EXPORT RegressionSM : public SolverModel
{
    Q_OBJECT
public:
    RegressionSM(Filtrator *filtrator, Preprocessor *preprocessor, Processor *processor, DataSource *source,
                 QObject *parent = nullptr);
    explicit RegressionSM(QObject *parent = nullptr);
    ~RegressionSM() override;
};
