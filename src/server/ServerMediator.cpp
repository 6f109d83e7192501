#include "server/ServerMediator.h"

#include "server/Colleague.h"

void ServerMediator::setMessageToServer(Colleague *sender, const QString &message)
{
    m_server->notify(sender, message);
}

void ServerMediator::setMessageToCompound(Colleague *sender, const QString &message)
{
    if (m_compound != nullptr) {
        m_compound->notify(sender, message);
    }
}

void ServerMediator::setMessageToHalvinModel(Colleague *sender, const QString &message)
{
    m_model->notify(sender, message);
}
