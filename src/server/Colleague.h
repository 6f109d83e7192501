#pragma once

#include "common/BPExport.h"

#include <QString>

/// A participant of the command service. The ServerMediator passes the messages of one participant to another one's
/// notify().
class BIOPROCESSING_EXPORT Colleague
{
public:
    Colleague() = default;
    virtual ~Colleague();
    Colleague(const Colleague &) = delete;
    Colleague &operator=(const Colleague &) = delete;

    /// @param sender  who sends the message; a ProcessRequest holds the values of its request and receives the results
    ///                (see ProcessRequest::exchangeOf())
    /// @param message compared exactly; an unknown one is ignored
    virtual void notify(Colleague *sender, QString message);
};
