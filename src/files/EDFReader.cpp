#include "files/EDFReader.h"

#include "base/TextHelper.h"
#include "devices/AmplifierChannel.h"
#include "devices/ChannelLabels.h"
#include "files/EdfLibrary.h"
#include "files/EdfRecords.h"
#include "files/EdfSalvage.h"
#include "files/EdfText.h"
#include "montage/Montage.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QMap>

#include <edflib.h>

#include <algorithm>
#include <limits>

namespace {

constexpr const char *kTranslationContext = "Generic";
constexpr int kNoFileType = -1;

double inSeconds(long long edfTime)
{
    return static_cast<double>(edfTime) / static_cast<double>(EDFLIB_TIME_DIMENSION);
}

QDateTime startOf(const edf_hdr_struct &header)
{
    const QDateTime wholeSeconds(QDate(header.startdate_year, header.startdate_month, header.startdate_day),
                                 QTime(header.starttime_hour, header.starttime_minute, header.starttime_second));
    return wholeSeconds.addMSecs(header.starttime_subsecond / (EDFLIB_TIME_DIMENSION / 1000));
}

/// EDFlib's own arithmetic.
bp::EdfSamples::Scale scaleOf(const edf_param_struct &signal)
{
    const double step = (signal.phys_max - signal.phys_min) / (signal.dig_max - signal.dig_min);
    return {step, signal.phys_max / step - signal.dig_max};
}

/// EDFlib adds the sizes up in 32 bits, and then reads beyond its buffers.
bool isOversized(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && bp::EdfLayout::read(file).recordBytes > bp::EdfLayout::kMostRecordBytes;
}

QString translated(const char *text)
{
    return QCoreApplication::translate(kTranslationContext, text);
}

} // namespace

EDFReader::EDFReader()
    : m_montage(QSharedPointer<Montage>::create())
    , m_header(std::make_unique<edf_hdr_struct>())
    , m_records(std::make_unique<bp::EdfRecords>())
{
    m_header->filetype = kNoFileType;
    BPCommon::log(m_logLevel, "EDFReader::EDFReader");
}

EDFReader::EDFReader(const QString &path, QObject *parent)
    : QObject(parent)
    , m_path(path)
    , m_montage(QSharedPointer<Montage>::create())
    , m_header(std::make_unique<edf_hdr_struct>())
    , m_records(std::make_unique<bp::EdfRecords>())
{
    m_header->filetype = kNoFileType;
    BPCommon::log(m_logLevel, "EDFReader::EDFReader %c", path);
}

EDFReader::~EDFReader()
{
    if (m_isOpened) {
        close();
    }
}

void EDFReader::setPath(const QString &path)
{
    BPCommon::log(m_logLevel, "EDFReader::setPath %c", path);
    m_path = path;
}

bool EDFReader::open()
{
    if (m_isOpened) {
        close();
    }
    m_isOpened = internalOpen();
    BPCommon::log(m_logLevel, "EDFReader::open %i", m_isOpened);
    if (m_isOpened) {
        m_lastError.clear();
        takeCurrentAnnotations();
        if (!m_notice.isEmpty()) {
            BPCommon::log(m_logLevel, "EDFReader::open %s", m_notice);
        }
    }
    return m_isOpened;
}

bool EDFReader::internalOpen()
{
    forgetFile();
    const QFileInfo file(m_path);
    if (!file.isFile()) {
        m_lastError =
            QStringLiteral("Cannot read %1: %2.")
                .arg(m_path,
                     file.exists() ? QStringLiteral("it is not a file") : QStringLiteral("there is no such file"));
        return false;
    }
    BPCommon::log(m_logLevel, "EDFReader::internalOpen %c", m_path);
    const int code = openInLibrary();
    if (code != 0) {
        qDebug("%s", bp::EdfLibrary::debugMessage(code));
        const QString reason = m_openError.isEmpty() ? bp::EdfLibrary::errorText(code) : m_openError;
        forgetFile();
        m_lastError = QStringLiteral("Cannot read %1: %2.").arg(m_path, reason);
        return false;
    }
    m_startDateTime = startOf(*m_header);
    m_handle = m_header->handle;
    m_channelCount = m_header->edfsignals;
    m_durationSeconds = m_header->file_duration / EDFLIB_TIME_DIMENSION;
    takeHeaderTexts();
    if (m_channelCount > 0) {
        m_sampleRate = getChannelSampleRate(0);
        fillMontage();
    }
    return true;
}

/// Returns 0 or EDFlib's code.
int EDFReader::openInLibrary()
{
    if (isOversized(m_path)) {
        m_openError = QStringLiteral("it has format errors: its data records are too large");
        return EDFLIB_FILE_CONTAINS_FORMAT_ERRORS;
    }
    int code = bp::EdfLibrary::openForReading(m_path, *m_header, EDFLIB_READ_ALL_ANNOTATIONS);
    if (code == EDFLIB_FILE_CONTAINS_FORMAT_ERRORS || code == EDFLIB_FILE_IS_DISCONTINUOUS) {
        code = openStandIn(code);
    }
    if (code == 0 && !m_records->open(m_path, m_header->edfsignals)) {
        bp::EdfLibrary::close(m_header->handle);
        code = EDFLIB_FILE_READ_ERROR;
    }
    return code;
}

/// For a file that EDFlib refused with that code.
int EDFReader::openStandIn(int code)
{
    const bp::EdfSalvage salvage(m_path);
    m_openError = salvage.reason();
    m_mendedCopy = m_openError.isEmpty() ? salvage.standIn() : nullptr;
    if (!m_mendedCopy) {
        return code;
    }
    BPCommon::log(m_logLevel, "EDFReader::internalOpen reads a copy with a mended header: %s",
                  m_mendedCopy->fileName());
    code = bp::EdfLibrary::openForReading(m_mendedCopy->fileName(), *m_header, EDFLIB_READ_ALL_ANNOTATIONS);
    if (code != 0) {
        return code;
    }
    m_header->datarecords_in_file = salvage.records();
    m_header->file_duration = m_header->datarecord_duration * salvage.records();
    m_header->starttime_subsecond = salvage.firstOnset();
    for (int i = 0; i < m_header->edfsignals; ++i) {
        m_header->signalparam[i].smp_in_file = m_header->signalparam[i].smp_in_datarecord * salvage.records();
    }
    m_annotations = salvage.annotations();
    m_header->annotations_in_file = m_annotations.size();
    m_gaps = salvage.gaps();
    m_notice = salvage.notice();
    return 0;
}

/// A program that is killed while it closes a recording leaves one that seems complete, but may lack annotations.
void EDFReader::addJournal()
{
    QFile file(m_path);
    const QByteArray header = file.open(QIODevice::ReadOnly) ? file.read(bp::EdfLayout::kFixedBytes) : QByteArray();
    const QList<edf_annotation_struct> missing = bp::EdfSalvage::missingAnnotations(
        bp::EdfJournal::read(m_path, bp::EdfJournal::identity(header)), m_annotations);
    if (!missing.isEmpty()) {
        m_annotations += missing;
        m_notice =
            QStringLiteral("%1 lacks %2 of its labels, which are beside it: \"bioprocessing repair\" makes a copy "
                           "with all of them.")
                .arg(m_path)
                .arg(missing.size());
    }
}

void EDFReader::forgetFile()
{
    m_mendedCopy.reset();
    m_records->close();
    m_gaps.clear();
    m_notice.clear();
    m_openError.clear();
    *m_header = {};
    m_header->filetype = kNoFileType;
    m_montage->clearChannel();
    m_annotations.clear();
    m_startDateTime = QDateTime();
    m_channelCount = 0;
    m_sampleRate = 0.0f;
    m_durationSeconds = 0;
    m_subject.clear();
    m_gender.clear();
    m_birthDate.clear();
    m_equipment.clear();
}

void EDFReader::takeHeaderTexts()
{
    const bool plus = m_header->filetype == EDFLIB_FILETYPE_EDFPLUS || m_header->filetype == EDFLIB_FILETYPE_BDFPLUS;
    m_subject = plus ? bp::EdfText::fromPlusHeader(m_header->patient_name) : bp::EdfText::fromHeader(m_header->patient);
    m_gender = bp::EdfText::fromPlusHeader(m_header->gender);
    m_birthDate = bp::EdfText::fromPlusHeader(m_header->birthdate);
    m_equipment = bp::EdfText::fromPlusHeader(m_header->equipment);
}

void EDFReader::fillMontage()
{
    for (int i = 0; i < m_channelCount; ++i) {
        const QString label = getChannelName(i);
        auto channel =
            std::make_unique<AmplifierChannel>(static_cast<unsigned>(i), 1.0f, bp::channelTypeFromLabel(label));
        channel->setChannelName(label);
        channel->setGroup1(static_cast<unsigned>(i) + 1);
        m_montage->push_back(channel.release());
    }
    m_montage->setCurrentSampleFreq(m_sampleRate);
}

void EDFReader::close()
{
    BPCommon::log(m_logLevel, "EDFReader::close");
    if (m_isOpened) {
        m_isOpened = false;
        bp::EdfLibrary::close(m_handle);
        m_handle = -1;
        m_mendedCopy.reset();
        m_records->close();
    }
}

EDFInfo EDFReader::fileInfo(const QString &path)
{
    EDFReader reader(path);
    EDFInfo info;
    info.valid = reader.open();
    if (!info.valid) {
        info.error = reader.lastError();
        return info;
    }
    info.fileType = reader.fileTypeText();
    info.startDateTime = reader.m_startDateTime;
    info.durationSeconds = reader.m_durationSeconds;
    info.channelCount = reader.m_channelCount;
    info.sampleRate = reader.m_sampleRate;
    info.channelNames = reader.m_montage->getChannelNames();
    info.subject = reader.m_subject;
    info.patientGender = reader.m_gender;
    info.patientBirthDate = reader.m_birthDate;
    info.equipment = reader.m_equipment;
    return info;
}

int EDFReader::getBuffData(unsigned offset, unsigned count, double *out)
{
    BPCommon::log(m_logLevel, "EDFReader::getBuffData %i", count);
    int code = m_isOpened ? 0 : getChannelBuffData(0, offset, count, out);
    for (unsigned done = 0; m_isOpened && code == 0 && done < count;) {
        const qint64 from = qint64{offset} + done;
        const auto piece = static_cast<unsigned>(m_records->samplesAhead(from, count - done));
        for (int c = 0; code == 0 && c < m_channelCount; ++c) {
            code = readFilled(static_cast<unsigned>(c), from, piece, out + static_cast<std::size_t>(c) * count + done);
        }
        done += piece;
    }
    return code;
}

int EDFReader::getChannelBuffData(unsigned channel, unsigned offset, unsigned count, double *out)
{
    return readFilled(channel, offset, count, out);
}

/// As getChannelBuffData().
int EDFReader::readFilled(unsigned channel, long long offset, unsigned count, double *out)
{
    unsigned read = 0;
    const int code = readChannel(channel, offset, count, out, read);
    if (code == 0) {
        std::fill(out + read, out + count, 0.0);
    }
    return code;
}

int EDFReader::readChannel(unsigned channel, long long offset, unsigned count, double *out, unsigned &read)
{
    read = 0;
    if (!m_isOpened || channel >= static_cast<unsigned>(m_channelCount)) {
        BPCommon::log(m_logLevel, "EDFReader::getChannelBuffData error %i", channel);
        return -2;
    }
    const unsigned wanted = std::min(count, samplesFrom(channel, offset));
    if (!m_records->read(static_cast<int>(channel), offset, wanted, scaleOf(m_header->signalparam[channel]), out)) {
        BPCommon::log(m_logLevel, "EDFReader::getChannelBuffData Error reading file %i  samples %i", channel, count);
        return -1;
    }
    read = wanted;
    return 0;
}

/// How many samples of an existing channel follow.
unsigned EDFReader::samplesFrom(unsigned channel, long long offset) const
{
    const long long left = m_header->signalparam[channel].smp_in_file - offset;
    return static_cast<unsigned>(std::clamp<long long>(left, 0, std::numeric_limits<unsigned>::max()));
}

std::vector<double> EDFReader::getChannelData(unsigned channel, unsigned offset, unsigned count)
{
    const bool exists = m_isOpened && channel < static_cast<unsigned>(m_channelCount);
    std::vector<double> values(exists ? std::min(count, samplesFrom(channel, offset)) : 0);
    unsigned read = 0;
    readChannel(channel, offset, static_cast<unsigned>(values.size()), values.data(), read);
    values.resize(read);
    return values;
}

std::vector<float> EDFReader::getChannelDataFloat(unsigned channel, unsigned offset, unsigned count)
{
    const std::vector<double> values = getChannelData(channel, offset, count);
    std::vector<float> narrow(values.size());
    std::transform(values.begin(), values.end(), narrow.begin(),
                   [](double value) { return static_cast<float>(value); });
    return narrow;
}

/// An empty one when there is no such channel.
const edf_param_struct &EDFReader::signalAt(int channel) const
{
    static const edf_param_struct none{};
    return channel >= 0 && channel < m_channelCount ? m_header->signalparam[channel] : none;
}

QString EDFReader::getChannelName(int channel) const
{
    return bp::EdfText::fromHeader(signalAt(channel).label);
}

QString EDFReader::getPhysicalDimension(int channel) const
{
    return bp::EdfText::fromHeader(signalAt(channel).physdimension);
}

double EDFReader::getPhysicalMinimum(int channel) const
{
    return signalAt(channel).phys_min;
}

double EDFReader::getPhysicalMaximum(int channel) const
{
    return signalAt(channel).phys_max;
}

long long EDFReader::getChannelSampleCount(int channel) const
{
    return signalAt(channel).smp_in_file;
}

float EDFReader::getChannelSampleRate(int channel) const
{
    const auto duration = static_cast<double>(m_header->datarecord_duration);
    return duration > 0.0 ? static_cast<float>(signalAt(channel).smp_in_datarecord / duration * 1e7) : 0.0f;
}

bool EDFReader::getPatientInfo(PatientInfo &patient) const
{
    if (m_header->filetype < 0) {
        return false;
    }
    const bool hasBirthDate = !m_birthDate.isEmpty();
    patient.gender = m_gender.isEmpty() ? -1 : m_gender == QLatin1String("Male") ? 1 : 0;
    patient.birthYear = hasBirthDate ? m_header->birthdate_year : 0;
    patient.birthMonth = hasBirthDate ? m_header->birthdate_month : 0;
    patient.birthDay = hasBirthDate ? m_header->birthdate_day : 0;
    patient.name = m_subject;
    patient.equipment = m_equipment;
    return true;
}

QSharedPointer<Montage> EDFReader::getFileMontage() const
{
    return m_montage;
}

QString EDFReader::infoShort() const
{
    return QStringLiteral("%1 %2%3 %4, %5")
        .arg(QString::number(m_channelCount), translated(QT_TRANSLATE_NOOP("Generic", "ch, ")),
             QString::number(static_cast<double>(m_sampleRate), 'f', 2), translated(QT_TRANSLATE_NOOP("Generic", "Hz")),
             TextHelper::TimeToText(getExactDuration()));
}

QString EDFReader::infoFull() const
{
    const QString rate = QString::number(static_cast<double>(m_sampleRate), 'f', 2);
    return TextHelper::printLikeTable({
        {translated(QT_TRANSLATE_NOOP("Generic", "Duration")), TextHelper::TimeToText(getExactDuration())},
        {translated(QT_TRANSLATE_NOOP("Generic", "Channels")), QString::number(m_channelCount)},
        {translated(QT_TRANSLATE_NOOP("Generic", "Sampling rate")),
         rate + QLatin1Char(' ') + translated(QT_TRANSLATE_NOOP("Generic", "Hz"))},
        {translated(QT_TRANSLATE_NOOP("Generic", "Subject")), m_subject},
        {translated(QT_TRANSLATE_NOOP("Generic", "Start time")),
         m_startDateTime.toString(QStringLiteral("yyyy/MM/dd hh:mm:ss"))},
    });
}

bool EDFReader::takeCurrentAnnotations()
{
    if (m_mendedCopy) {
        return m_isOpened; // EDFlib does not have them
    }
    m_annotations.clear();
    const long long count = m_isOpened ? m_header->annotations_in_file : 0;
    bool taken = m_isOpened;
    for (long long i = 0; i < count; ++i) {
        edf_annotation_struct annotation{};
        const int code = edf_get_annotation(m_handle, static_cast<int>(i), &annotation);
        if (code != 0) {
            BPCommon::log(m_logLevel, "EDFReader::takeCurrentAnnotations code %i index %i", code, i);
            taken = false;
            continue;
        }
        m_annotations << annotation;
    }
    if (m_isOpened) {
        addJournal();
    }
    return taken;
}

void EDFReader::getAnnotationList(QList<edf_annotation_struct> &annotations) const
{
    annotations = m_annotations;
}

QList<AnnotationStrct> EDFReader::annotations() const
{
    QList<AnnotationStrct> list;
    for (const edf_annotation_struct &annotation : m_annotations) {
        const double duration = annotation.duration_l < 0 ? -1.0 : inSeconds(annotation.duration_l);
        list << AnnotationStrct{inSeconds(annotation.onset), duration,
                                bp::EdfText::fromAnnotation(annotation.annotation)};
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const AnnotationStrct &a, const AnnotationStrct &b) { return a.onset < b.onset; });
    return list;
}

double EDFReader::signalTime(double fileTime) const
{
    double time = fileTime;
    for (const EDFGap &gap : m_gaps) {
        time -= std::clamp(fileTime - gap.start, 0.0, gap.duration);
    }
    return time;
}

double EDFReader::getExactDuration() const
{
    return inSeconds(m_header->file_duration);
}

QString EDFReader::fileTypeText() const
{
    switch (m_header->filetype) {
    case EDFLIB_FILETYPE_EDF:
        return QStringLiteral("EDF");
    case EDFLIB_FILETYPE_EDFPLUS:
        return QStringLiteral("EDF+");
    case EDFLIB_FILETYPE_BDF:
        return QStringLiteral("BDF");
    case EDFLIB_FILETYPE_BDFPLUS:
        return QStringLiteral("BDF+");
    default:
        return QString();
    }
}
