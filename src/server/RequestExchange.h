#pragma once

#include "algorithms/UnitParams.h"
#include "devices/AmplifierInfo.h"

#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <vector>

class Montage;

/// The values of one request, for those who carry it out (host, model, server), and what they return. Empty at the
/// beginning of each request.
struct RequestExchange
{
    /// A profile, or an algorithm by name.
    struct Entry
    {
        QString name;
        QString type;
        QString descriptor;
    };

    QString name; ///< of a device, a profile or an algorithm
    QString type; ///< of a new profile: "rt" or "bci"
    QString descriptor; ///< of an algorithm's instance
    QString label; ///< of the recording
    int state = 0;
    AmplifierInfo device;
    QString montageName; ///< file in the montage folder, or the name of a montage that came as a description
    QSharedPointer<Montage> montage;
    UnitParams params; ///< of a device or an algorithm; filled in by the receiver where a request asks for them
    QString valuesProblem; ///< of the values that came with the parameters: see bp::valuesProblem()
    /// All entries of a list, each of which is sent as a message of its own. The list is applied completely or not at
    /// all: whoever carries out the first entry checks the others too, and rejects it when one of them is impossible.
    QList<Entry> list;
    int listIndex = 0; ///< of the entry whose message is being sent

    QStringList profiles; ///< answer to "getProfileList"
    std::vector<UnitParams> algorithms; ///< answer to "getAlgorithms"
    QString recordPath; ///< answer to "getRecordFile"
    QString refusal; ///< why the request is rejected, see refuse(); sent to the client as the error

    /// Rejects the request. The first reason counts; an empty one does nothing.
    void refuse(const QString &reason)
    {
        if (refusal.isEmpty()) {
            refusal = reason;
        }
    }
};
