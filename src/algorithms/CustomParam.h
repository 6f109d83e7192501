#pragma once

#include "common/BPExport.h"

#include <QString>

/// Describes one parameter of an algorithm or a device: key, label, limits, default and current value. All values are
/// texts: numbers in shortest general form ("14", "0.5"), flags "0" and "1", choices the index into the choice list.
struct BIOPROCESSING_EXPORT custom_param
{
    enum GROUP_TIPE {
        GroupCommon = 0,
        GroupInformation = 1 ///< what a device says of itself or of its recording: not to be set, and no factory has it
    };
    /// Who sets the value; only what the user sets is reported as editable.
    enum EDIT_TYPE {
        EditUser = 0,
        EditFormula = 1, ///< the text of a formula
        EditSelection = 2 ///< picked from what there is: the rhythms of a formula, the channel of the heart rate
    };
    enum TYPE_VAL {
        ValueReal = 1,
        ValueInteger = 2, ///< flags and choices too
        ValueText = 3 ///< channel lists, colours, formulas
    };
    enum CONTROL_TYPE {
        ControlReal = 1,
        ControlInteger = 2,
        ControlChoice = 3,
        ControlCheckBox = 4,
        ControlColor = 5,
        ControlText = 6,
        ControlChannels = 7
    };

    GROUP_TIPE group = GroupCommon;
    EDIT_TYPE editType = EditUser;
    TYPE_VAL valueType = ValueText;
    CONTROL_TYPE controlType = ControlText;
    QString key; ///< an XML name: it becomes an element of the stored set
    QString label; ///< untranslated, marked for the "Generic" context
    QString unused; ///< nothing here reads it; kept, so that the record stays as hosts know it
    QString choices; ///< options of a choice, separated by ";"
    QString defaultValue;
    QString visibility; ///< "key?show:hide" or "key?hide:show", by a flag of the same set; the host evaluates it
    QString minimum;
    QString maximum;
    QString step = QStringLiteral("0.1");
    QString currentValue; ///< empty until set

    /// The current value, or the default while there is none.
    const QString &getValue() const { return currentValue.isEmpty() ? defaultValue : currentValue; }
    /// The label in the running program's language.
    QString getTitle() const;
    bool isEditable() const { return editType == EditUser; }
};
