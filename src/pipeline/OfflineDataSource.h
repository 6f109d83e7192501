#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "pipeline/DataSource.h"

#include <QList>
#include <QString>
#include <QTimer>

#include <atomic>
#include <vector>

/// What is known about one file of an offline source.
struct fileProperty
{
    int label = -1; ///< class of every sample in the file; −1 when that is not known
};

/// Replays recorded files segment by segment, in real time or as fast as possible, with the labels given for them.
///
/// The files are loaded whole, one after another, into one recording. A segment is getBufSize() seconds of all of them;
/// the rest of the recording that fills no segment isn't sent. Ready as soon as files are loaded: without labels every
/// segment has the label −1.
///
/// Threads: all but SendData() and isReady() is for the thread that owns the source, or for another one before
/// moveToThread(). The segments are sent by a timer on the owner thread, which needs an event loop; the source may be
/// moved to itself and started (`source.moveToThread(&source); source.start();`) and is stopped when it is destroyed.
class BIOPROCESSING_EXPORT OfflineDataSource : public DataSource
{
    Q_OBJECT
public:
    enum FileType {
        EDF = 0, ///< EDF(+) and BDF(+), as EDFReader gives the values
        TXT = 1, ///< columns of numbers separated by tabs or blanks; one column per channel
        Virtual = 2 ///< no files: a synthetic recording, see setFileList()
    };
    Q_ENUM(FileType)

    /// @param fs       Hz; a recording with another rate takes its place
    /// @param bufSize  segment length in seconds
    OfflineDataSource(int fs, double bufSize, FileType type, QObject *parent = nullptr);
    /// Loads the files at once; errorText() tells when that failed.
    /// @param channels  what the stacks are made of; all inputs as they are when it is empty
    OfflineDataSource(std::vector<QString> files, int fs, double bufSize, std::vector<DataSource::Channel> channels,
                      FileType type, QObject *parent = nullptr);
    ~OfflineDataSource() override;

    /// Replaces the recording by these files. All of them need the same number of channels and one sampling rate.
    ///
    /// A virtual source makes 10 s per entry of files (whose names don't matter): on every channel a sine of 50 and
    /// uniform noise of ±10, of 5 Hz in the first entry and 5 Hz more in each following one, so that entries are told
    /// apart by their rhythm. The same list gives the same samples.
    /// @param properties  one per file, or none; when every file has a label there, the labels are set from it
    /// @param labelKind   a DataSource::LabelType
    /// @return false when a file is refused: errorText() has the reason, one trace line too, and nothing is loaded
    bool setFileList(QList<QString> &files, QList<fileProperty> &properties, int labelKind = SampleLabels);
    /// One label per file. False when their number differs; the labels are unset then.
    bool setLabels(std::vector<int> &labels);
    /// One pack per file, with one label per sample. False when a number differs; the labels are unset then.
    bool setLabels(std::vector<std::vector<int>> &labels);

    /// Off, the default: the files are one recording, and a segment may begin in one file and end in the next. On:
    /// every file is cut from its own beginning, and what is left at its end is not sent.
    void setSegmentsWithinFiles(bool on) { m_isWithinFiles = on; }

    /// There is a recording, and a segment has at least one sample. Any thread.
    bool isReady() const { return m_ready; }
    /// Rows of a stack.
    int getChannelsCount() const;
    /// Samples per channel of the whole recording.
    qint64 getSampleCount() const;
    /// One sentence on why the last loading failed; empty after one that worked.
    QString errorText() const { return m_errorText; }

    /// Starts from the beginning, also while it sends. Any thread.
    /// @param realTime  one segment per segment length, or one per millisecond
    void SendData(bool realTime) override;

public slots:
    /// Sends the next segment, or the end of the data.
    virtual void Send();

private:
    Q_INVOKABLE void sendFromOwner(bool realTime);

    using Rows = std::vector<std::vector<double>>;

    bool load(const QList<QString> &files);
    bool GetFromEdf(const QString &path, Rows &rows, double &rate);
    bool GetFromTxt(const QString &path, Rows &rows);
    bool getVirtual(int entry, Rows &rows);
    bool appendFile(const QString &path, Rows &&rows);
    bool adoptRate(const QString &path, double rate);
    bool refuse(const QString &reason);
    void forget();
    void rewind();
    double segmentSamples() const { return m_bufSize * m_fs; }
    /// Samples [from, to) of the recording.
    struct Segment
    {
        double from;
        double to;
    };
    Segment nextSegment();
    Segment nextWithinFile();
    int segmentLabel(std::size_t from, std::size_t to) const;

    FileType m_fileType;
    Rows m_data; ///< one row per input, all files one after another
    std::vector<std::size_t> m_fileLengths; ///< samples per channel
    std::vector<int> m_labels; ///< one per sample, or none at all
    Rows m_stack;
    int m_stackCount = 0; ///< segments sent so far
    bool m_isWithinFiles = false;
    std::size_t m_file = 0; ///< that the next segment comes from, where segments stay within files
    std::size_t m_fileStart = 0; ///< samples
    int m_fileStackCount = 0;
    std::atomic<bool> m_ready{false};
    std::atomic<unsigned> m_sendings{0}; ///< shows the thread sanitizer that waiting for the thread orders its writes
    BPCommon::LogEvent m_logLevel = BPCommon::LogDataSource;
    QTimer m_timer;
    QString m_errorText;
};
