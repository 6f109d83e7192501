#pragma once

#include "common/BPExport.h"

#include <QString>

class Colleague;

/// Routes messages between the command server, the acquisition side (the compound) and the algorithm side (the model).
/// All are borrowed.
class BIOPROCESSING_EXPORT ServerMediator
{
public:
    void setServer(Colleague *server) { m_server = server; }
    void setCompound(Colleague *compound) { m_compound = compound; }
    void setHalvinModel(Colleague *model) { m_model = model; }

    /// Server and model must have been set. Messages to a compound that has not been set are ignored.
    void setMessageToServer(Colleague *sender, const QString &message);
    void setMessageToCompound(Colleague *sender, const QString &message);
    void setMessageToHalvinModel(Colleague *sender, const QString &message);

private:
    Colleague *m_server = nullptr;
    Colleague *m_compound = nullptr;
    Colleague *m_model = nullptr;
};
