#pragma once

#include "algorithms/UnitParams.h"

#include <QString>
#include <QVector>

/// The series of one rhythm in a rhythm spreadsheet. A value.
struct RhythmData
{
    QString descriptor; ///< name of the rhythm, "alpha" for example
    UnitParams params; ///< empty when the spreadsheet has no parameters of this rhythm
    QVector<qint64> times; ///< milliseconds since the first row, ascending
    QVector<int> values; ///< as many as times: the rhythm value, rounded when it was written
    int maximum = 0; ///< of every value that the rhythm had, those between two rows included
    double average = 0.0;
};
