#include "service/TrainingSide.h"

TrainingSide::TrainingSide(QObject *parent)
    : QObject(parent)
{
}

QString TrainingSide::start(const QString & /*folder*/, const QList<int> & /*states*/)
{
    return QStringLiteral("starttraining: this build cannot train");
}

void TrainingSide::stop()
{
}
