#pragma once

#include <QString>

/// An annotation that a device brings along, for example one of the recording it plays. Times in seconds from the
/// start.
struct AnnotationStrct
{
    double onset = 0.0;
    double duration = 0.0;
    QString text;
};
