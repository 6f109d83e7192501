#include "bci/ClassificationSM.h"

#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "filters/Filtrator.h"
#include "pipeline/DataSource.h"

ClassificationSM::ClassificationSM(Filtrator *filtrator, Preprocessor *preprocessor, Processor *processor,
                                   DataSource *source, QObject *parent)
    : SolverModel(filtrator, preprocessor, processor, source, parent)
{
}

ClassificationSM::ClassificationSM(QObject *parent)
    : SolverModel(parent)
{
}

ClassificationSM::~ClassificationSM() = default;
