#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "devices/AnnotationStrct.h"
#include "files/EDFGap.h"
#include "files/EDFInfo.h"
#include "files/PatientInfo.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSharedPointer>
#include <QString>

#include <memory>
#include <vector>

class Montage;
namespace bp {
class EdfSession;
}
struct edf_annotation_struct;
struct edf_param_struct;

/// Reads an EDF(+) or BDF(+) file.
///
/// Samples come inverted, as the writer stores them inverted, so that a recording of ours has the polarity that it had
/// at the input. Values are in the signal's own unit. Offsets and counts are samples of the channel in question. Header
/// facts, montage and annotations stay until the next open(). One thread at a time; several readers may work on several
/// threads.
///
/// A discontinuous recording (EDF+D, BDF+D) has its samples one after the other, as if nothing were between them:
/// gaps() tells where time is missing. Annotations keep the time of the file, which goes on in a gap.
class BIOPROCESSING_EXPORT EDFReader : public QObject
{
    Q_OBJECT
public:
    EDFReader();
    explicit EDFReader(const QString &path, QObject *parent = nullptr);
    ~EDFReader() override;

    /// Takes effect with the next open().
    void setPath(const QString &path);
    /// Reads header and annotations. A file that is open is closed first. On failure lastError() says why. Common
    /// faults of headers that say nothing about the data are mended in a temporary copy of the header. A recording
    /// that was not closed is read as far as its records are whole, with the annotations of its journal; notice() says
    /// so.
    bool open();
    void close();
    bool isFileOpened() const { return m_isOpened; }
    /// The header of a file, which is closed again at once. Also of one that this process reads or records.
    static EDFInfo fileInfo(const QString &path);

    /// Reads every channel into consecutive blocks of count values: channel c begins at c × count.
    /// @param out has room for channels × count values
    /// @return 0, or the code of the channel that failed as in getChannelBuffData()
    int getBuffData(unsigned offset, unsigned count, double *out);
    /// @param out has room for count values; what lies beyond the end of the signal is 0
    /// @return 0, −1 when seeking or reading failed, −2 when no file is open or there is no such channel
    int getChannelBuffData(unsigned channel, unsigned offset, unsigned count, double *out);
    /// Only the values that the file has: fewer than count at the end of the signal, none after an error.
    std::vector<double> getChannelData(unsigned channel, unsigned offset, unsigned count);
    std::vector<float> getChannelDataFloat(unsigned channel, unsigned offset, unsigned count);

    /// Label without the blanks around it; empty when there is no such channel.
    QString getChannelName(int channel) const;
    QString getEquipmentInfo() const { return m_equipment; }
    QString getPatientName() const { return m_subject; }
    /// "Male", "Female" or empty.
    QString getPatientGender() const { return m_gender; }
    /// Date of birth as the file has it, "02 mar 1951" for example; empty when it does not say.
    QString getPatientData() const { return m_birthDate; }
    bool getPatientInfo(PatientInfo &patient) const;
    /// One channel per signal, reading the input of the same number; types are guessed from the labels. The same object
    /// for the reader's whole life, filled anew by open().
    QSharedPointer<Montage> getFileMontage() const;

    /// One line.
    QString infoShort() const;
    /// One line per fact.
    QString infoFull() const;
    /// Reads the file's annotations again; open() has done so once.
    bool takeCurrentAnnotations();
    /// As EDFlib gives them: times in 100 ns from the start of the file, text in UTF-8. Include <edflib.h> for the
    /// type.
    void getAnnotationList(QList<edf_annotation_struct> &annotations) const;
    /// In the order of their onsets; the duration is −1 when there is none.
    QList<AnnotationStrct> annotations() const;
    /// Where a discontinuous recording pauses, in order; empty for a continuous one.
    const QList<EDFGap> &gaps() const;
    /// Where a time of the file, that of an annotation for example, lies in the signal that is read; the beginning of a
    /// gap for a time in it. Both in seconds, the same in a continuous recording.
    double signalTime(double fileTime) const;

    int getChannelCount() const { return m_channelCount; }
    /// Of signal 0, in Hz; 0 when there is none.
    float getSampleRate() const { return m_sampleRate; }
    /// In Hz; 0 when there is no such channel.
    float getChannelSampleRate(int channel) const;
    long long getChannelSampleCount(int channel) const;
    /// Unit without the blanks around it, "uV" for example.
    QString getPhysicalDimension(int channel) const;
    double getPhysicalMinimum(int channel) const;
    double getPhysicalMaximum(int channel) const;
    /// Whole seconds.
    long long getDuration() const { return m_durationSeconds; }
    double getExactDuration() const;
    QDateTime getStartDateTime() const { return m_startDateTime; }
    /// "EDF", "EDF+", "BDF" or "BDF+"; empty without a file.
    QString fileTypeText() const;

    /// One sentence on why the last open() failed, and what helps; empty after one that worked.
    QString lastError() const { return m_lastError; }
    /// One sentence on what a user should know of the file that is open: that it was not closed, and how to repair it,
    /// for example. Empty when there is nothing.
    QString notice() const;

private:
    bool internalOpen();
    void forgetFile();
    void readHeaderTexts();
    void fillMontage();
    const edf_param_struct &signalAt(int channel) const;
    unsigned samplesFrom(unsigned channel, long long offset) const;
    int readFilled(unsigned channel, long long offset, unsigned count, double *out);
    int readChannel(unsigned channel, long long offset, unsigned count, double *out, unsigned &read);

    BPCommon::LogEvent m_logLevel = BPCommon::LogEdfReader;
    QString m_path;
    QString m_lastError;
    QSharedPointer<Montage> m_montage;
    QDateTime m_startDateTime;
    int m_channelCount = 0;
    float m_sampleRate = 0.0f;
    QString m_subject;
    QString m_gender;
    QString m_birthDate;
    QString m_equipment;
    bool m_isOpened = false;
    bool m_sharesFile = false; ///< reads what another object of this process has open
    qint64 m_durationSeconds = 0;
    std::unique_ptr<bp::EdfSession> m_session;
};
