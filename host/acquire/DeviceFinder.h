#pragma once

#include "devices/AmplifierInfo.h"

#include <QList>
#include <QString>

class Amplifier;

/// One search round over the device plug-ins beside the program.
class DeviceFinder
{
public:
    DeviceFinder() = default;
    /// Ends the search; devices opened with open() live on until the program ends.
    ~DeviceFinder();
    DeviceFinder(const DeviceFinder &) = delete;
    DeviceFinder &operator=(const DeviceFinder &) = delete;

    /// Descriptions of all devices, in the plug-ins' order. Runs an event loop until every plug-in has answered, some
    /// seconds at most.
    QList<AmplifierInfo> search();
    /// The device of that name, or else the first whose name begins with it; null when there is none. After search().
    Amplifier *open(const QString &name);

private:
    QList<AmplifierInfo> m_found;
};
