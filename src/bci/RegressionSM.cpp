#include "bci/RegressionSM.h"

#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "filters/Filtrator.h"
#include "pipeline/DataSource.h"

RegressionSM::RegressionSM(Filtrator *filtrator, Preprocessor *preprocessor, Processor *processor, DataSource *source,
                           QObject *parent)
    : SolverModel(filtrator, preprocessor, processor, source, parent)
{
}

RegressionSM::RegressionSM(QObject *parent)
    : SolverModel(parent)
{
}

RegressionSM::~RegressionSM() = default;
