#pragma once

#include "bci/SolverModel.h"

/// The family of models that decide between classes.
class BIOPROCESSING_EXPORT ClassificationSM : public SolverModel
{
    Q_OBJECT
public:
    ClassificationSM(Filtrator *filtrator, Preprocessor *preprocessor, Processor *processor, DataSource *source,
                     QObject *parent = nullptr);
    explicit ClassificationSM(QObject *parent = nullptr);
    ~ClassificationSM() override;
};
