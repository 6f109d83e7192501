#pragma once

#include "algorithms/UnitParams.h"
#include "common/BPExport.h"
#include "common/MetaTypes.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <vector>

namespace QXlsx {
class Document;
class Worksheet;
} // namespace QXlsx

/// Writes rhythm values to a spreadsheet beside a recording: one row per tick of 200 ms, at the end the maximum and the
/// average of each rhythm. docs/file-formats.md has the layout.
///
/// Nothing is on disk before stopWrite(); until then a row takes 16 bytes and 4 per rhythm. A writer that is destroyed
/// while it writes stops and saves first.
///
/// Works on the thread it lives on. Rows are due at start + k · 200 ms, whoever asks: a loop that never returns to the
/// event loop calls poll() in each pass; on a thread with an event loop a timer does. Both together double no row.
class BIOPROCESSING_EXPORT XLSWriter : public QObject
{
    Q_OBJECT
public:
    /// Milliseconds since 1970, and expected never to jump.
    using Clock = std::function<qint64()>;

    explicit XLSWriter(QObject *parent = nullptr);
    /// @param clock asked instead of the steady clock that otherwise starts at the time of day of startWrite()
    explicit XLSWriter(Clock clock, QObject *parent = nullptr);
    ~XLSWriter() override;

    /// Path of a recording: of "a.edf" the spreadsheet is "a_rt.xls". A path without ".edf" is the spreadsheet's own.
    void setPath(const QString &path);
    /// Without its timer only the owner's poll() writes rows: for a writer that several threads use in turn, whose own
    /// thread's event loop must then leave it alone. With it at first; before startWrite().
    void setTimerEnabled(bool enabled) { m_timerEnabled = enabled; }
    QString getPath() const { return m_path; }
    /// Appends the sets whose "visible" is "1" to those to be written, and forgets all values received so far, those of
    /// earlier calls' sets too, which go on. The list is emptied by stopWrite() only.
    void setParamList(const std::vector<UnitParams> &params);
    /// Does nothing while there are no parameter sets. While it writes and has no row yet, it starts anew at the
    /// present moment; once there are rows it goes on.
    void startWrite();
    /// Whether it writes and has written a row.
    bool hasRows() const;
    /// Ends writing and saves the spreadsheet. What is at its path is replaced only by a complete file, and only when
    /// it is a workbook: beside anything else, "_rt.xls" is appended.
    /// @return false, with one trace line and lastError(), when it could not be saved; the workbook is then kept until
    /// the next startWrite(), and another call tries again, with a new path perhaps. True when there was nothing to
    /// save.
    bool stopWrite();
    bool isRunning() const { return m_running; }
    /// Writes one row per tick that has become due since the last call, each with its tick's own time.
    void poll();
    /// One sentence on why the last save failed; empty after one that worked.
    QString lastError() const { return m_lastError; }

    // The steps that startWrite() and stopWrite() are made of. Without a document they do nothing.

    /// Makes the workbook in memory, with the two sheets and their header rows, in place of one that is there.
    void createDocument();
    /// Throws the workbook away. The rows of a writer that is running stay, and get a new one when it stops.
    void removeDocument();
    /// Writes two texts into two neighbouring cells of the data. Rows and columns count from 1.
    /// @return false when there is no document, or no such cell
    bool setDataToFile(int row, int column, const QString &first, const QString &second);
    /// Milliseconds from the first call since the last stop to this one; rows count so too.
    long long calclastClock();
    /// Writes the parameter sets onto the sheet with the information.
    void paramListToFile();
    /// Writes one parameter into a row of that sheet.
    void writeAlgorithmParametrs(int row, const custom_param &param);
    /// Writes the maximum and the average behind the last row.
    void writeMaxAvgValues();

public slots:
    /// Writes a row for the present moment.
    void slotWriteData();
    /// Takes the first element as the present value of the rhythm that the set's descriptor names. Other descriptors
    /// and empty results are ignored.
    void addData(const QString &in_type_data, const UnitParams &in_param, unsigned int in_channel,
                 const vector<float> &in_data);

private:
    /// What a rhythm has received; the maximum and the average need no list of its values.
    struct Rhythm
    {
        int current = 0;
        int maximum = 0;
        qint64 sum = 0;
        qint64 count = 0;
    };
    /// Rows written under one map of rhythms: values has columns.size() numbers per row.
    struct Block
    {
        std::vector<QString> descriptors;
        std::vector<int> columns;
        std::vector<qint64> times;
        std::vector<qint64> counts;
        std::vector<int> values;
    };

    void beginBlock();
    void writeRow(qint64 time);
    long long countUntil(qint64 now);
    /// 0 when no set has the descriptor.
    int columnOf(const QString &descriptor) const;

    void writeHeaders();
    void writeRows();
    bool save();
    bool fail(const QString &path, const QString &reason);
    QXlsx::Worksheet *sheet(int index) const;

    QTimer m_timer;
    bool m_timerEnabled = true;
    Clock m_clock;
    bool m_ownClock = false; ///< started anew by each startWrite()
    std::unique_ptr<QXlsx::Document> m_document;
    QString m_path;
    QString m_lastError;
    std::vector<UnitParams> m_params;
    QHash<QString, Rhythm> m_rhythms; ///< by descriptor
    std::vector<Block> m_blocks;
    QByteArray m_unsaved; ///< a finished workbook
    QDateTime m_startDate;
    qint64 m_interval = 200; ///< ms
    qint64 m_nextTick = 0;
    qint64 m_lastClock = 0;
    qint64 m_totalClock = 0;
    int m_row = 1;
    bool m_running = false;
};
