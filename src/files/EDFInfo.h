#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

/// The header of an EDF(+) or BDF(+) file that is not kept open.
struct EDFInfo
{
    bool valid = false; ///< false: the file could not be read, and error says why
    QString error;
    QString fileType; ///< "EDF", "EDF+", "BDF" or "BDF+"
    QDateTime startDateTime;
    qint64 durationSeconds = 0; ///< whole seconds
    int channelCount = 0; ///< signals, annotation signals not counted
    float sampleRate = 0.0f; ///< of signal 0, Hz
    QStringList channelNames;
    QString subject;
    QString patientGender;
    QString patientBirthDate;
    QString equipment;
};
