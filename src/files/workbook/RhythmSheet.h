#pragma once

#include <QString>

// What the writer and the reader of rhythm spreadsheets have in common.
namespace bp {

/// A text of the spreadsheet: its caption in the "Generic" context, and what other programs and languages call it.
struct SheetCaption
{
    const char *caption;
    const char *fallbacks; ///< UTF-8, separated by "|"
};

namespace sheet {

extern const SheetCaption kInformation;
extern const SheetCaption kData;
extern const SheetCaption kStartDate;
extern const SheetCaption kRhythmsAmount;
extern const SheetCaption kTime;
extern const SheetCaption kCounts;
extern const SheetCaption kMaximum;
extern const SheetCaption kAverage;
extern const SheetCaption kNumber; ///< ends in a blank

constexpr int kMaxRows = 1048576; ///< of the file format
constexpr int kMaxColumns = 16384;
constexpr int kHeaderRow = 1; ///< of the data
constexpr int kTimeColumn = 1;
constexpr int kCountsColumn = 2; ///< the first rhythm has the next one
constexpr int kCaptionColumn = 1; ///< of the information
constexpr int kValueColumn = 2;
constexpr int kKeyColumn = 3;

} // namespace sheet

/// In the running program's language.
QString translated(const SheetCaption &caption);
/// The same as the name of a sheet, which must not hold every character.
QString sheetName(const SheetCaption &caption);
/// A text without the characters that XML cannot hold: a single one would make the whole workbook unreadable.
QString cellText(const QString &text);
/// Where the rhythms of a recording go: "a.edf" gives "a_rt.xls"; a path without ".edf" stays as it is.
QString rhythmSheetPath(const QString &path);

} // namespace bp
