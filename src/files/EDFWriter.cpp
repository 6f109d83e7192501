#include "files/EDFWriter.h"

#include "files/edf/EdfFileLock.h"
#include "files/edf/EdfJournal.h"
#include "files/edf/EdfLibrary.h"
#include "files/edf/EdfRecordGuard.h"
#include "files/edf/EdfRecordingLimits.h"
#include "files/edf/EdfSamples.h"
#include "files/edf/EdfText.h"
#include "montage/Montage.h"

#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>

#include <edflib.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

using Limits = bp::EdfRecordingLimits;

constexpr int kFirstYear = 1985; // of those that the two digits in the header stand for
constexpr int kLastYear = 2084;
constexpr long long kLatestOnset = 1'000'000'000'000'000; ///< 0.1 ms; beyond it EDFlib's own units overflow

} // namespace

EDFWriter::EDFWriter()
    : m_fileLock(std::make_unique<bp::EdfFileLock>())
    , m_guard(std::make_unique<bp::EdfRecordGuard>())
    , m_journal(std::make_unique<bp::EdfJournal>())
{
    BPCommon::log(m_logLevel, "EDFWriter::EDFWriter ");
}

EDFWriter::EDFWriter(const QString &path, int channelCount, int samplesPerRecord)
    : EDFWriter()
{
    m_path = path;
    setInternalBuffSize(samplesPerRecord, static_cast<unsigned>(std::max(0, channelCount)));
    open();
}

EDFWriter::~EDFWriter()
{
    if (m_isOpen) {
        close();
    }
}

bool EDFWriter::prepareWriter(const QString &path, const QSharedPointer<Montage> &montage, int samplesPerRecord)
{
    if (m_isOpen) {
        close();
    }
    m_path = path;
    m_handle = -1;
    m_position = 0;
    m_buffer.clear();
    m_channelCount = 0;
    if (montage.isNull()) {
        return refuse(QStringLiteral("there is no montage"));
    }
    setChannelLables(montage);
    setInternalBuffSize(samplesPerRecord, static_cast<unsigned>(montage->size()));
    return open();
}

void EDFWriter::setChannelLables(const QSharedPointer<Montage> &montage)
{
    BPCommon::log(m_logLevel, "EDFWriter::setChannelLables");
    m_labels = montage.isNull() ? QStringList() : montage->getChannelNames();
}

void EDFWriter::setInternalBuffSize(int samplesPerRecord, unsigned channelCount)
{
    if (m_isOpen) {
        BPCommon::log(m_logLevel, "EDFWriter::setInternalBuffSize ignored, a file is open");
        return;
    }
    m_samplesPerRecord = static_cast<quint32>(std::max(0, samplesPerRecord));
    m_channelCount = static_cast<int>(std::min<unsigned>(channelCount, std::numeric_limits<int>::max()));
    m_position = 0;
    const quint64 size = quint64{m_samplesPerRecord} * channelCount;
    m_buffer.resize(size * Limits::kSampleBytes <= Limits::kMostRecordBytes ? size
                                                                            : 0); // open() refuses what is larger
}

bool EDFWriter::open()
{
    BPCommon::log(m_logLevel, "EDFWriter::open");
    if (m_isOpen) {
        close();
    }
    const QString reason = unwritableReason();
    if (!reason.isEmpty()) {
        return refuse(reason);
    }
    if (!createFile()) {
        return false;
    }
    m_lastError.clear();
    m_position = 0;
    m_paddedSeconds = 0.0;
    m_hasSamples = false;
    m_cutsLabels = false;
    m_guard->begin(m_path);
    m_isOpen = true;
    initCurrentFile(m_channelCount);
    requestHeaderFields();
    return true;
}

/// Why the file must not even be created, empty when it may.
QString EDFWriter::unwritableReason() const
{
    const bp::Outcome withinLimits = Limits::check(m_channelCount, m_samplesPerRecord);
    if (!withinLimits) {
        return withinLimits.reason();
    }
    const QFileInfo target(m_path);
    if (target.exists() && !target.isFile()) {
        return QStringLiteral("it is not a regular file");
    }
    return QString();
}

bool EDFWriter::createFile()
{
    const bool existed = QFileInfo::exists(m_path);
    const bp::Outcome locked = m_fileLock->acquire(m_path);
    if (!locked) {
        return refuse(locked.reason());
    }
    m_notice.clear();
    if (!m_fileLock->setAsidePath().isEmpty()) {
        addNotice("open",
                  QStringLiteral("An unrepaired recording was at %1 and is kept as %2.")
                      .arg(m_path, m_fileLock->setAsidePath()));
    }
    m_handle = bp::EdfLibrary::openForWriting(m_path, EDFLIB_FILETYPE_EDFPLUS, m_channelCount);
    if (m_handle >= 0) {
        return true;
    }
    BPCommon::log(m_logLevel, "EDFWriter::open edfopen_file_writeonly code error %i", m_handle);
    m_lastError = QStringLiteral("Cannot create %1: %2.").arg(m_path, bp::EdfLibrary::errorText(m_handle));
    m_fileLock->release();
    if (!existed) {
        QFile::remove(m_path);
    }
    return false;
}

void EDFWriter::addNotice(const char *function, const QString &sentence)
{
    BPCommon::log(m_logLevel, "EDFWriter::%s %s", function, sentence);
    m_notice += (m_notice.isEmpty() ? QString() : QStringLiteral(" ")) + sentence;
}

bool EDFWriter::refuse(const QString &reason)
{
    m_lastError = QStringLiteral("Cannot create %1: %2.").arg(m_path, reason);
    BPCommon::log(m_logLevel, "EDFWriter::open %s", m_lastError);
    return false;
}

void EDFWriter::initCurrentFile(int channelCount)
{
    BPCommon::log(m_logLevel, "EDFWriter::initCurrentFile %i", channelCount);
    for (int i = 0; m_isOpen && i < std::min(channelCount, m_channelCount); ++i) {
        const int codes[]{edf_set_label(m_handle, i, bp::EdfText::label(m_labels.value(i)).constData()),
                          edf_set_prefilter(m_handle, i, ""),
                          edf_set_physical_dimension(m_handle, i, "uV"),
                          edf_set_physical_maximum(m_handle, i, bp::EdfSamples::kPhysicalMaximum),
                          edf_set_digital_maximum(m_handle, i, bp::EdfSamples::kDigitalMaximum),
                          edf_set_digital_minimum(m_handle, i, bp::EdfSamples::kDigitalMinimum),
                          edf_set_physical_minimum(m_handle, i, bp::EdfSamples::kPhysicalMinimum),
                          edf_set_samplefrequency(m_handle, i, static_cast<int>(m_samplesPerRecord))};
        for (const int code : codes) { // in this order: EDFlib is called as the list is made
            reportError(code, "EDFWriter::initCurrentFile code error %i");
        }
    }
}

void EDFWriter::requestHeaderFields()
{
    reportError(edf_set_number_of_annotation_signals(m_handle, Limits::annotationSignals(m_channelCount)),
                "EDFWriter::open edf_set_number_of_annotation_signals code error %i");
    const int year = m_startDateTime.date().year();
    const bool isGiven = m_startDateTime.isValid() && year >= kFirstYear && year <= kLastYear;
    if (m_startDateTime.isValid() && !isGiven) {
        addNotice("open",
                  QStringLiteral("The format has no year %1: the recording starts at the present time.").arg(year));
    }
    // Otherwise EDFlib takes the time of the first record, when a second of the recording is over.
    const QDateTime start = isGiven ? m_startDateTime : QDateTime::currentDateTime();
    reportError(edf_set_startdatetime(m_handle, start.date().year(), start.date().month(), start.date().day(),
                                      start.time().hour(), start.time().minute(), start.time().second()),
                "EDFWriter::open edf_set_startdatetime code error %i");
    m_journal->begin(m_path, start.toString(QStringLiteral("dd.MM.yyhh.mm.ss")).toLatin1());
}

bool EDFWriter::close()
{
    if (!m_isOpen) {
        BPCommon::log(m_logLevel, "EDFWriter::close no file is open");
        return false;
    }
    m_isOpen = false;
    const bool isInPlace = m_fileLock->isInPlace();
    m_guard->beginClose();
    const int code = bp::EdfLibrary::close(m_handle);
    m_handle = -1;
    if (code != 0) {
        BPCommon::log(m_logLevel, "EDFWriter::close code error %i", code);
    }
    QString fault = closeFault(isInPlace);
    if (fault.isEmpty() && code != 0) {
        fault = writeFailure();
    }
    m_fileLock->release();
    if (fault.isEmpty()) {
        m_journal->finish();
        return true;
    }
    m_journal->keep();
    m_lastError = fault;
    BPCommon::log(m_logLevel, "EDFWriter::close %s", m_lastError);
    return false;
}

void EDFWriter::discard()
{
    if (!m_isOpen || m_guard->soundRecords() > 0) {
        return;
    }
    m_isOpen = false;
    const bool isInPlace = m_fileLock->isInPlace();
    bp::EdfLibrary::close(m_handle);
    m_handle = -1;
    m_journal->finish();
    m_fileLock->release();
    if (isInPlace) {
        QFile::remove(m_path);
    }
}

/// Mends the closed file. Returns a sentence on what is missing in it; empty when nothing is.
QString EDFWriter::closeFault(bool isInPlace)
{
    if (!isInPlace) {
        const QString how = QFileInfo::exists(m_path) ? QStringLiteral("replaced") : QStringLiteral("removed");
        const QString labels = m_guard->annotationCount() == 0 || !m_journal->isComplete()
            ? QString()
            : QStringLiteral(" Its labels are in %1.").arg(bp::EdfJournal::pathFor(m_path));
        return QStringLiteral("%1 was %2 while it was being recorded: the recording is lost.").arg(m_path, how)
            + labels;
    }
    const qint64 written = m_guard->soundRecords();
    if (!m_guard->mend()) {
        BPCommon::log(m_logLevel, "EDFWriter::close %i of %i records are in the file", m_guard->soundRecords(),
                      written);
        const QString cause = m_lastError.isEmpty() ? writeFailure() : m_lastError;
        return cause + QStringLiteral(" It holds the first %1 s.").arg(m_guard->soundRecords()) + lostLabels();
    }
    if (written == 0 && m_guard->annotationCount() > 0) {
        return QStringLiteral("%1 ended within its first second and holds nothing.").arg(m_path) + lostLabels();
    }
    if (written == 0 && m_hasSamples) {
        addNotice("close", QStringLiteral("%1 ended within its first second and holds nothing.").arg(m_path));
    }
    return lostLabels().trimmed();
}

/// A sentence with a blank before it.
QString EDFWriter::lostLabels() const
{
    const qint64 lost = m_guard->lostAnnotations();
    if (lost == 0) {
        return QString();
    }
    BPCommon::log(m_logLevel, "EDFWriter::close %i annotations did not fit", lost);
    return QStringLiteral(" %1 of its %2 labels found no room in it%3.")
        .arg(lost)
        .arg(m_guard->annotationCount())
        .arg(m_journal->isComplete() ? QStringLiteral("; all of them are in ") + bp::EdfJournal::pathFor(m_path)
                                     : QString());
}

bool EDFWriter::writeData(unsigned count, const float *samples)
{
    if (!m_isOpen || (samples == nullptr && count > 0)) {
        BPCommon::log(m_logLevel, "EDFWriter::writeData no file is open or no samples");
        return false;
    }
    BPCommon::log(m_logLevel, "EDFWriter::writeData %i", count);
    m_hasSamples = m_hasSamples || count > 0;
    bool written = true;
    unsigned from = 0;
    while (count - from >= m_samplesPerRecord - m_position) {
        const unsigned take = m_samplesPerRecord - m_position;
        fillOutPutBuffer(count, samples, take, from);
        from += take;
        ++m_recordsWritten;
        written = writeRecord("EDFWriter::writeData edfwrite_physical_samples code error %i") && written;
        m_position = 0;
    }
    fillOutPutBuffer(count, samples, count - from, from);
    m_position += count - from;
    return written;
}

bool EDFWriter::writeRemainderToFile()
{
    if (!m_isOpen) {
        BPCommon::log(m_logLevel, "EDFWriter::writeRemainderToFile no file is open");
        return false;
    }
    BPCommon::log(m_logLevel, "EDFWriter::writeRemainderToFile");
    for (auto block = m_buffer.begin(); block != m_buffer.end(); block += m_samplesPerRecord) {
        std::fill(block + m_position, block + m_samplesPerRecord, qint16{0});
    }
    if (!writeRecord("EDFWriter::writeRemainderToFile %i")) {
        return false;
    }
    m_paddedSeconds = static_cast<double>(m_samplesPerRecord - m_position) / m_samplesPerRecord;
    return true;
}

void EDFWriter::fillOutPutBuffer(unsigned count, const float *samples, unsigned take, unsigned from)
{
    if (samples == nullptr || m_buffer.empty() || from > count) {
        return;
    }
    take = std::min({take, count - from, m_samplesPerRecord - m_position});
    for (std::size_t c = 0; c < static_cast<std::size_t>(m_channelCount); ++c) {
        bp::EdfSamples::store(samples + c * count + from, take, m_buffer.data() + c * m_samplesPerRecord + m_position);
    }
}

bool EDFWriter::writeRecord(const char *errorFormat)
{
    const int code = edf_blockwrite_digital_short_samples(m_handle, m_buffer.data());
    const bool written = code == 0;
    if (!written) {
        BPCommon::log(m_logLevel, errorFormat, code);
    }
    if (!written && !m_guard->hasFailed()) {
        m_lastError = writeFailure();
    }
    m_guard->noteRecord(written);
    return written;
}

/// One sentence on a record that could not be written.
QString EDFWriter::writeFailure() const
{
    const QStorageInfo storage(QFileInfo(m_path).absolutePath());
    const qint64 recordBytes = qint64{m_samplesPerRecord} * m_channelCount * Limits::kSampleBytes;
    const bool full = storage.isValid() && storage.bytesAvailable() < recordBytes;
    return full ? QStringLiteral("The disk is full: %1 is not recorded any further.").arg(m_path)
                : QStringLiteral("Writing %1 failed: check the disk or the connection to it.").arg(m_path);
}

void EDFWriter::takeStartTime()
{
    m_startTime = QDateTime::currentMSecsSinceEpoch();
}

void EDFWriter::clearShift()
{
    m_position = 0;
    m_recordsWritten = 0;
}

std::pair<bool, long long> EDFWriter::addAnnotation(const QString &text)
{
    if (m_startTime == 0) {
        return {false, 0};
    }
    const qint64 elapsed = QDateTime::currentMSecsSinceEpoch() - m_startTime;
    BPCommon::log(m_logLevel, "EDFWriter::addAnnotation Start data time %i Current time %i", m_startTime, elapsed);
    return addAnnotationAt(elapsed, text);
}

std::pair<bool, long long> EDFWriter::addAnnotationAt(long long elapsedMs, const QString &text)
{
    return addAnnotationAt(elapsedMs, text, 0);
}

std::pair<bool, long long> EDFWriter::addAnnotationAt(long long elapsedMs, const QString &text, long long durationMs)
{
    m_elapsed = std::clamp<long long>(elapsedMs, 0, kLatestOnset / 10);
    const long long duration = std::min<long long>(durationMs, kLatestOnset / 10) * 10;
    return {writeAnnotation(m_elapsed * 10, std::max(1LL, duration), text), m_elapsed};
}

bool EDFWriter::addAnnotation(double onsetSeconds, double durationSeconds, const QString &text)
{
    // 1000 and not EDFlib's 10000 per second. Compatibility: hosts rely on where these annotations land.
    const double onset = onsetSeconds * 1000.0;
    const double duration = durationSeconds * 1000.0;
    if (!(std::fabs(onset) < kLatestOnset && std::fabs(duration) < kLatestOnset)) {
        BPCommon::log(m_logLevel, "EDFWriter::addAnnotation no time: %g s for %g s", onsetSeconds, durationSeconds);
        return false;
    }
    return writeAnnotation(static_cast<long long>(onset), static_cast<long long>(duration), text);
}

bool EDFWriter::writeAnnotation(long long onset, long long duration, const QString &text)
{
    if (!m_isOpen) {
        BPCommon::log(m_logLevel, "EDFWriter::addAnnotation no file is open");
        return false;
    }
    const QByteArray bytes = bp::EdfText::annotation(text);
    const int code = edfwrite_annotation_utf8(m_handle, onset, duration, bytes.constData());
    if (code != 0) {
        BPCommon::log(m_logLevel, "EDFWriter::addAnnotation edfwrite_annotation_utf8 code error %i", code);
        return false;
    }
    if (!m_cutsLabels && bp::EdfText::isCut(text)) {
        m_cutsLabels = true;
        addNotice("addAnnotation",
                  QStringLiteral("Labels have at most 40 bytes in a recording: \"%1\" was cut.").arg(text));
    }
    const bp::EdfAnnotation written{onset * bp::kEdfWriteTicks, duration * bp::kEdfWriteTicks, bytes};
    m_guard->noteAnnotation(written);
    if (!m_journal->append(written)) {
        BPCommon::log(m_logLevel, "EDFWriter::addAnnotation is not in the journal %s", bp::EdfJournal::pathFor(m_path));
    }
    return true;
}

void EDFWriter::setPatientInfo(const PatientInfo &patient)
{
    if (!m_isOpen) {
        return;
    }
    BPCommon::log(m_logLevel, "EDFWriter::setPatientInfo opened file");
    setPatientName(patient.name);
    setPatientGender(patient.gender);
    setEquipmentInfo(patient.equipment);
    setPatientData(patient.birthYear, patient.birthMonth, patient.birthDay);
}

void EDFWriter::setPatientName(const QString &name)
{
    m_patientName = name;
    reportError(m_isOpen ? edf_set_patientname(m_handle, bp::EdfText::header(name).constData()) : 0,
                "EDFWriter::setPatientName code error %i");
}

void EDFWriter::setPatientGender(int gender)
{
    reportError(m_isOpen ? edf_set_gender(m_handle, gender) : 0, "EDFWriter::setPatientGender code error %i");
}

void EDFWriter::setPatientData(int year, int month, int day)
{
    reportError(m_isOpen ? edf_set_birthdate(m_handle, year, month, day) : 0,
                "EDFWriter::setPatientData code error %i");
}

void EDFWriter::setEquipmentInfo(const QString &equipment)
{
    reportError(m_isOpen ? edf_set_equipment(m_handle, bp::EdfText::header(equipment).constData()) : 0,
                "EDFWriter::setEquipmentInfo code error %i");
}

void EDFWriter::reportError(int code, const char *format) const
{
    if (code != 0) {
        BPCommon::log(m_logLevel, format, code);
    }
}
