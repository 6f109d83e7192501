#pragma once

#include "devices/AnnotationStrct.h"
#include "files/PatientInfo.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

class Amplifier;

constexpr double kNoDuration = 0.0001; ///< seconds: recordings of ours give it to events without a duration

/// A recording that is played as a device: what it carries besides its samples.
struct PlayedRecording
{
    QList<AnnotationStrct> annotations; ///< seconds of signal from where playing starts, sorted
    double passSeconds = 0.0; ///< length of one pass of a recording that is played again and again; 0: played once
    double seconds = 0.0; ///< of signal in the file
    QDateTime start; ///< of the first sample
    PatientInfo patient;
    QString notice; ///< what a user should know of the file; may be empty

    /// Makes the file the device's recording. Throws a Refusal when it cannot be played.
    void open(Amplifier &device, const QString &path);
    /// Moves annotations and start time to the point where the device will start, by its parameters.
    void beginWhereDeviceDoes(Amplifier &device);
};

/// What a device says of itself that a user should know, one sentence each: signals that it leaves out, for example.
QStringList deviceNotes(Amplifier &device);
