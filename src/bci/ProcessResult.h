#pragma once

#include <QMap>
#include <QMetaType>
#include <QString>

/// What a processor publishes: result name → value, "Class" or "rate_0" for example.
using ProcessResult = QMap<QString, float>;
