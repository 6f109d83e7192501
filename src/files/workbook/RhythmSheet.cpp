#include "files/workbook/RhythmSheet.h"

#include <QCoreApplication>

#include <algorithm>

namespace {

constexpr int kMaxSheetName = 31;
constexpr int kMaxCellText = 32767;

bool isPlain(QChar character)
{
    return character >= QLatin1Char(' ') && character.unicode() < 0xD800;
}

} // namespace

namespace bp {
namespace sheet {

const SheetCaption kInformation{QT_TRANSLATE_NOOP("Generic", "Information"), "Info|Информация"};
const SheetCaption kData{QT_TRANSLATE_NOOP("Generic", "Data"), "Данные"};
const SheetCaption kStartDate{QT_TRANSLATE_NOOP("Generic", "Start date"), "Дата начала"};
const SheetCaption kRhythmsAmount{QT_TRANSLATE_NOOP("Generic", "Rhythms amount"),
                                  "Rhythms amount|Number of rhythms|Количество ритмов"};
const SheetCaption kTime{QT_TRANSLATE_NOOP("Generic", "Time"), "Время"};
const SheetCaption kCounts{QT_TRANSLATE_NOOP("Generic", "Counts"), "Отсчёты"};
const SheetCaption kMaximum{QT_TRANSLATE_NOOP("Generic", "Maximum"), "Максимум"};
const SheetCaption kAverage{QT_TRANSLATE_NOOP("Generic", "Average"), "Среднее"};
const SheetCaption kNumber{QT_TRANSLATE_NOOP("Generic", "№ "), "No. |# "};

} // namespace sheet

QString translated(const SheetCaption &caption)
{
    return QCoreApplication::translate("Generic", caption.caption);
}

QString rhythmSheetPath(const QString &path)
{
    if (path.indexOf(QLatin1String(".edf")) < 1) {
        return path;
    }
    // The last four characters are removed wherever ".edf" stands. Compatibility: older recordings have these names.
    return path.chopped(4) + QStringLiteral("_rt.xls");
}

QString sheetName(const SheetCaption &caption)
{
    QString name = translated(caption).left(kMaxSheetName);
    for (const char forbidden : {'[', ']', ':', '*', '?', '/', '\\', '\''}) {
        name.replace(QLatin1Char(forbidden), QLatin1Char(' '));
    }
    name = name.trimmed();
    return name.isEmpty() ? QString::fromUtf8(caption.caption) : name;
}

QString cellText(const QString &text)
{
    if (text.size() <= kMaxCellText && std::all_of(text.cbegin(), text.cend(), isPlain)) {
        return text;
    }
    QString clean;
    for (const uint point : text.leftRef(kMaxCellText).toUcs4()) {
        const bool isBlank = point == '\t' || point == '\n' || point == '\r';
        const bool isSurrogate = point >= 0xD800 && point < 0xE000;
        if ((point >= 0x20 || isBlank) && !isSurrogate && point != 0xFFFE && point != 0xFFFF) {
            clean += QString::fromUcs4(&point, 1);
        }
    }
    return clean;
}

} // namespace bp
