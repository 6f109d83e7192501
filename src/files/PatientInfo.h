#pragma once

#include <QString>

/// Who is recorded, and with what. Zero and empty mean "not known", except for the gender.
struct PatientInfo
{
    int gender = 0; ///< 0 female, 1 male; -1 when a file does not say
    int birthYear = 0;
    int birthMonth = 0;
    int birthDay = 0;
    QString name;
    QString equipment;
};
