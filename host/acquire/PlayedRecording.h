#pragma once

#include "devices/AnnotationStrct.h"
#include "files/PatientInfo.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

class Amplifier;
class DataCompound;

constexpr double kNoDuration = 0.0001; ///< seconds: recordings of ours give it to events without a duration

/// A recording that is played as a device: what it carries besides its samples. As it is made, it carries nothing.
struct PlayedRecording
{
    QList<AnnotationStrct> annotations; ///< seconds of signal from where playing starts, sorted
    double passSeconds = 0.0; ///< length of one pass of a recording that is played again and again; 0: played once
    double seconds = 0.0; ///< of signal in the file
    QDateTime start; ///< of the first sample; invalid when nothing is played
    PatientInfo patient;
    QStringList notes; ///< what a user should know of the file, one sentence each

    PlayedRecording() { patient.gender = -1; }
    /// Makes the file the device's recording. Throws a Refusal when it cannot be played.
    void open(Amplifier &device, const QString &path);
    /// The same from the point where the device will start, by its parameters.
    PlayedRecording fromWhereDeviceBegins(Amplifier &device) const;
    /// Gives annotations, start time and patient to the recordings that follow.
    void giveTo(DataCompound &compound) const;
};

/// What a user should know of a device before it is acquired, one sentence each: signals that it leaves out, a rate
/// that a recording cannot hold.
/// @param isRecorded  whether it is, or may be
QStringList deviceNotes(Amplifier &device, bool isRecorded);
