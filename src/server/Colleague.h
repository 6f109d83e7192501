#pragma once

#include "common/BPExport.h"

#include <QString>

/// A participant of the command service: everybody hears of others' wishes through notify(), by way of the
/// ServerMediator.
class BIOPROCESSING_EXPORT Colleague
{
public:
    Colleague() = default;
    virtual ~Colleague();
    Colleague(const Colleague &) = delete;
    Colleague &operator=(const Colleague &) = delete;

    /// @param sender  who wants something; a ProcessRequest carries what belongs to the wish, and takes the answer (see
    ///                ProcessRequest::exchangeOf())
    /// @param message compared exactly; one that is not known is ignored
    virtual void notify(Colleague *sender, QString message);
};
