#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "files/PatientInfo.h"

#include <QDateTime>
#include <QObject>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <memory>
#include <utility>
#include <vector>

class Montage;
namespace bp {
class EdfFileLock;
class EdfJournal;
class EdfRecordGuard;
} // namespace bp

/// Records one acquisition run into an EDF+ file with data records of one second.
///
/// Samples are µV, stored inverted and with a resolution of 1 µV; values beyond ±32767 µV are clipped, NaN is stored as
/// 0. One thread at a time; several writers may work on several threads. Errors are traced with EDFlib's code, the
/// operation returns false, and lastError() has a sentence for the user.
///
/// Every complete record is with the operating system when the call that completed it returns, and every annotation
/// stands in a journal beside the recording ("a.edf.labels") until the file is closed: a program that is killed loses
/// the samples of the incomplete record, less than a second, and nothing else. EDFReader reads such a file, and
/// EDFRescue makes a sound one of it. When the power fails, what the system has not written back by then is lost as
/// well.
class BIOPROCESSING_EXPORT EDFWriter : public QObject
{
    Q_OBJECT
public:
    EDFWriter();
    /// Opens the file at once; isFileOpened() tells whether that worked. The labels are empty.
    EDFWriter(const QString &path, int channelCount, int samplesPerRecord);
    /// Closes an open file. Samples of an incomplete record are lost: see writeRemainderToFile().
    ~EDFWriter() override;

    /// Opens a new file, with one signal per channel of the montage. A file that is still open is closed first.
    /// @param samplesPerRecord sampling rate in Hz
    /// @return false without a montage, and when open() fails
    bool prepareWriter(const QString &path, const QSharedPointer<Montage> &montage, int samplesPerRecord);
    void setChannelLables(const QSharedPointer<Montage> &montage);
    /// Takes effect with the next open(); ignored while a file is open.
    void setInternalBuffSize(int samplesPerRecord, unsigned channelCount);

    /// Creates the file, replacing an existing one. Nothing is touched when the file would be one that EDFlib cannot
    /// write (no channels, more than 639, no samples, records beyond 10 MB), when this process reads or writes the file
    /// under whatever path, and when another program records into it: while a file is open, "a.edf.lock" stands beside
    /// "a.edf". A recording that was not closed, and the journal of its labels, are not replaced but renamed; notice()
    /// tells the name.
    bool open();
    /// Finalises the file.
    /// @return false, with lastError(), when the recording is not on the disk as it should be: it was removed or
    /// replaced meanwhile; records did not reach the disk, and it is cut to those that did; or labels found no room, as
    /// all of them where there is no record. The journal of the labels then stays.
    bool close();
    /// Closes a file without any record and removes it, with the labels it was given; one with records stays as it is.
    void discard();
    bool isFileOpened() const { return m_isOpen; }
    /// Gives the signals of the file just opened their label, unit, range and rate. Called by open().
    void initCurrentFile(int channelCount);

    /// Appends a block and writes every record that it completes.
    /// @param count   samples per channel, any number
    /// @param samples planar block, channels × count, µV
    /// @return false when no file is open, or a record could not be written; writing goes on with the next block
    bool writeData(unsigned count, const float *samples);
    /// Fills the current record with zeros and writes it. The position stays (clearShift() resets it); at the beginning
    /// of a record that is a whole second of zeros.
    bool writeRemainderToFile();
    /// Seconds of zeros at the end of the last record that writeRemainderToFile() wrote, into the file that is open, or
    /// else the last one; 0 when it wrote none.
    double paddedSeconds() const { return m_paddedSeconds; }
    /// Copies samples [from, from + take) of each channel of a block into the current record, inverted, without moving
    /// the position. What does not fit the record or the block is left out.
    void fillOutPutBuffer(unsigned count, const float *samples, unsigned take, unsigned from);

    /// Sets the mark from which addAnnotation(text) measures.
    void takeStartTime();
    void resetStartTime() { m_startTime = 0; }
    /// Drops the samples of the incomplete record.
    void clearShift();

    /// Annotates the present time, measured from takeStartTime().
    ///
    /// A file has room for 16 annotations per record, wherever they belong. When there are more, close() lets short
    /// ones share the room of one; what does not fit then stays in the journal, see close(). Texts go into the file in
    /// the local 8-bit encoding and are cut to 40 bytes between two characters; notice() says so.
    /// @return whether it was taken, and the milliseconds since the start mark; (false, 0) without a start mark
    std::pair<bool, long long> addAnnotation(const QString &text);
    /// As addAnnotation(text), for a time that was taken elsewhere.
    /// @param elapsedMs milliseconds from the start of the recording; a negative time counts as 0
    std::pair<bool, long long> addAnnotationAt(long long elapsedMs, const QString &text);
    /// @param durationMs below 1 it is 0.1 ms, as that of the labels without one
    std::pair<bool, long long> addAnnotationAt(long long elapsedMs, const QString &text, long long durationMs);
    /// Kept as hosts know it: the annotation lands at one tenth of the given onset, and lasts one tenth of the given
    /// duration, both in seconds.
    bool addAnnotation(double onsetSeconds, double durationSeconds, const QString &text);

    /// Date and time in the header of the files opened from now on, in whole seconds; years are 1985 to 2084. The time
    /// of open() when it is invalid, as at first.
    void setStartDateTime(const QDateTime &start) { m_startDateTime = start; }

    /// Patient data go into the header, and so must be given between open() and the first complete record; ignored
    /// while no file is open. The header is ASCII: accents are dropped, other alphabets become "?".
    void setPatientInfo(const PatientInfo &patient);
    void setPatientName(const QString &name);
    /// @param gender 0 female, 1 male
    void setPatientGender(int gender);
    void setPatientData(int year, int month, int day);
    void setEquipmentInfo(const QString &equipment);
    /// The last name given, also when no file took it.
    QString getPatientName() const { return m_patientName; }

    /// One sentence on the last failure: what, which file, why. Empty after a successful open().
    QString lastError() const { return m_lastError; }
    /// Sentences on what a user should know although nothing failed: an earlier recording that was renamed, labels that
    /// were cut, an end within the first second. Of the file that is open, or else the last one; empty when there is
    /// nothing.
    QString notice() const { return m_notice; }

private:
    QString unwritableReason() const;
    bool createFile();
    void addNotice(const char *function, const QString &sentence);
    bool refuse(const QString &reason);
    void requestHeaderFields();
    bool writeRecord(const char *errorFormat);
    QString writeFailure() const;
    bool writeAnnotation(long long onset, long long duration, const QString &text);
    QString closeFault(bool isInPlace);
    QString lostLabels() const;
    void reportError(int code, const char *format) const;

    BPCommon::LogEvent m_logLevel = BPCommon::LogEdfWriter;
    bool m_isOpen = false;
    QString m_path;
    QString m_patientName;
    QString m_lastError;
    QString m_notice;
    QStringList m_labels;
    int m_handle = -1;
    quint32 m_samplesPerRecord = 0;
    quint32 m_position = 0;
    int m_channelCount = 0;
    int m_recordsWritten = 0; ///< since clearShift(), failed ones included
    QDateTime m_startDateTime;
    qint64 m_startTime = 0;
    qint64 m_elapsed = 0;
    double m_paddedSeconds = 0.0;
    bool m_hasSamples = false; ///< were given to the file that is open
    bool m_cutsLabels = false; ///< notice() says so
    std::vector<qint16> m_buffer; ///< the current record, channel-major, digital values
    std::unique_ptr<bp::EdfFileLock> m_fileLock;
    std::unique_ptr<bp::EdfRecordGuard> m_guard;
    std::unique_ptr<bp::EdfJournal> m_journal;
};
