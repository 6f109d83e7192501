#pragma once

#include "algorithms/UnitParams.h"
#include "common/BPExport.h"
#include "files/RhythmData.h"

#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>

#include <memory>
#include <vector>

namespace QXlsx {
class Document;
class Worksheet;
} // namespace QXlsx

namespace bp {
struct SheetCaption;
} // namespace bp

/// Reads a rhythm spreadsheet back: the parameter sets and one series per rhythm.
///
/// Captions are understood in every language that the program has translations of. Files are not trusted: sizes are
/// bounded before anything is unpacked. One thread at a time.
class BIOPROCESSING_EXPORT XLSReader
{
public:
    /// Opens the file; isOpened() tells whether that worked.
    explicit XLSReader(const QString &path);
    ~XLSReader();
    XLSReader(const XLSReader &) = delete;
    XLSReader &operator=(const XLSReader &) = delete;

    /// Reads a whole spreadsheet, ".xls", or the one beside a recording, ".edf". What was read before is forgotten.
    /// @return false, with one trace line and lastError(), when the file is missing, damaged or something else
    bool openFile(const QString &path);
    bool isOpened() const { return m_isOpened; }

    /// Series by descriptor. False, and nothing is changed, when no file is open.
    bool readData(QHash<QString, RhythmData> &data) const;
    /// In the order of the columns; sets that the file does not describe are missing.
    void getParamList(std::vector<UnitParams> &params) const;
    /// Rows of values, without the maximum and the average.
    int getDataCount() const { return m_dataCount; }

    // The steps that openFile() is made of. Called by themselves, they unpack the file of the last openFile() again,
    // which then stays in memory until removeDocument().

    /// Reads how many rhythms there are, and their parameter sets.
    /// @param error why not, as part of a sentence
    bool readInformation(QString &error);
    /// Reads the series of the rhythms, whose number and parameter sets are known.
    bool readRhythmData(QString &error);
    /// Reads the parameter sets from a row of the information on; rows count from 1.
    void readRhythmsParam(int firstRow);
    /// The parameter set whose caption stands in a row of the information.
    /// @param name of its algorithm
    UnitParams makeParametrs(const QString &name, int row);
    /// Reads a column of the data, counted from 1: times, values, maximum and average.
    void fillDataConteiner(RhythmData &data, int column);
    void removeDocument();
    /// One sentence on why the last openFile() failed; empty after one that worked.
    QString lastError() const { return m_lastError; }

private:
    bool readFile(QString &error);
    bool selectSheet(const bp::SheetCaption &caption);
    void findDataRows();
    QXlsx::Worksheet *sheetOf(const bp::SheetCaption &caption) const;
    QString text(int row, int column) const;

    std::unique_ptr<QXlsx::Document> m_document; ///< only while a file is being read, or one of the steps is used
    QXlsx::Worksheet *m_sheet = nullptr; ///< the one being read
    QString m_path; ///< of the spreadsheet
    QString m_lastError;
    bool m_isOpened = false;
    int m_amount = 0;
    int m_dataCount = 0;
    int m_maximumRow = 0; ///< 0 when there is none
    int m_averageRow = 0;
    QSet<QString> m_setPrefixes; ///< of the captions of parameter sets
    QMap<int, UnitParams> m_paramsByPosition;
    QHash<QString, RhythmData> m_data;
};
