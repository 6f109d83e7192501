#include "files/EDFReader.h"

#include "base/TextHelper.h"
#include "devices/AmplifierChannel.h"
#include "devices/ChannelLabels.h"
#include "files/edf/EdfSession.h"
#include "files/edf/EdfText.h"
#include "montage/Montage.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <edflib.h>

#include <algorithm>
#include <limits>

namespace {

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

QString translated(const char *text)
{
    return QCoreApplication::translate("Generic", text);
}

} // namespace

EDFReader::EDFReader()
    : m_montage(QSharedPointer<Montage>::create())
    , m_session(std::make_unique<bp::EdfSession>())
{
    BPCommon::log(m_logLevel, "EDFReader::EDFReader");
}

EDFReader::EDFReader(const QString &path, QObject *parent)
    : QObject(parent)
    , m_path(path)
    , m_montage(QSharedPointer<Montage>::create())
    , m_session(std::make_unique<bp::EdfSession>())
{
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
        if (!notice().isEmpty()) {
            BPCommon::log(m_logLevel, "EDFReader::open %s", notice());
        }
    }
    return m_isOpened;
}

bool EDFReader::internalOpen()
{
    forgetFile();
    BPCommon::log(m_logLevel, "EDFReader::internalOpen %c", m_path);
    const QFileInfo file(m_path);
    const bp::Outcome opened = !file.exists() ? bp::Outcome::failure(QStringLiteral("there is no such file"))
        : !file.isFile()                      ? bp::Outcome::failure(QStringLiteral("it is not a file"))
                                              : m_session->open(m_path, m_sharesFile);
    if (!opened) {
        m_lastError = QStringLiteral("Cannot read %1: %2.").arg(m_path, opened.reason());
        return false;
    }
    const edf_hdr_struct &header = m_session->header();
    m_startDateTime = startOf(header);
    m_channelCount = header.edfsignals;
    m_durationSeconds = header.file_duration / EDFLIB_TIME_DIMENSION;
    readHeaderTexts();
    if (m_channelCount > 0) {
        m_sampleRate = getChannelSampleRate(0);
        fillMontage();
    }
    return true;
}

void EDFReader::forgetFile()
{
    m_session = std::make_unique<bp::EdfSession>();
    m_montage->clearChannel();
    m_startDateTime = QDateTime();
    m_channelCount = 0;
    m_sampleRate = 0.0f;
    m_durationSeconds = 0;
    m_subject.clear();
    m_gender.clear();
    m_birthDate.clear();
    m_equipment.clear();
}

void EDFReader::readHeaderTexts()
{
    const edf_hdr_struct &header = m_session->header();
    const bool plus = header.filetype == EDFLIB_FILETYPE_EDFPLUS || header.filetype == EDFLIB_FILETYPE_BDFPLUS;
    m_subject = plus ? bp::EdfText::fromPlusHeader(header.patient_name) : bp::EdfText::fromHeader(header.patient);
    m_gender = bp::EdfText::fromPlusHeader(header.gender);
    m_birthDate = bp::EdfText::fromPlusHeader(header.birthdate);
    m_equipment = bp::EdfText::fromPlusHeader(header.equipment);
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
        m_session->close();
    }
}

EDFInfo EDFReader::fileInfo(const QString &path)
{
    EDFReader reader(path);
    reader.m_sharesFile = true;
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
        const auto piece = static_cast<unsigned>(m_session->records().samplesAhead(from, count - done));
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
    if (!m_session->records().read(static_cast<int>(channel), offset, wanted,
                                   scaleOf(m_session->header().signalparam[channel]), out)) {
        BPCommon::log(m_logLevel, "EDFReader::getChannelBuffData Error reading file %i  samples %i", channel, count);
        return -1;
    }
    read = wanted;
    return 0;
}

/// How many samples of an existing channel follow.
unsigned EDFReader::samplesFrom(unsigned channel, long long offset) const
{
    const long long left = m_session->header().signalparam[channel].smp_in_file - offset;
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
    return channel >= 0 && channel < m_channelCount ? m_session->header().signalparam[channel] : none;
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
    const auto duration = static_cast<double>(m_session->header().datarecord_duration);
    return duration > 0.0 ? static_cast<float>(signalAt(channel).smp_in_datarecord / duration * 1e7) : 0.0f;
}

bool EDFReader::getPatientInfo(PatientInfo &patient) const
{
    if (m_session->header().filetype < 0) {
        return false;
    }
    const bool hasBirthDate = !m_birthDate.isEmpty();
    patient.gender = m_gender.isEmpty() ? -1 : m_gender == QLatin1String("Male") ? 1 : 0;
    patient.birthYear = hasBirthDate ? m_session->header().birthdate_year : 0;
    patient.birthMonth = hasBirthDate ? m_session->header().birthdate_month : 0;
    patient.birthDay = hasBirthDate ? m_session->header().birthdate_day : 0;
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
    return m_session->readAnnotations();
}

void EDFReader::getAnnotationList(QList<edf_annotation_struct> &annotations) const
{
    annotations = m_session->libraryAnnotations();
}

const QList<EDFGap> &EDFReader::gaps() const
{
    return m_session->gaps();
}

QString EDFReader::notice() const
{
    return m_session->notice();
}

QList<AnnotationStrct> EDFReader::annotations() const
{
    QList<AnnotationStrct> list;
    for (const bp::EdfAnnotation &annotation : m_session->annotations()) {
        const double duration = annotation.duration < 0 ? -1.0 : bp::edfTime(annotation.duration);
        list << AnnotationStrct{bp::edfTime(annotation.onset), duration,
                                bp::EdfText::fromAnnotation(annotation.text.constData())};
    }
    std::stable_sort(list.begin(), list.end(),
                     [](const AnnotationStrct &a, const AnnotationStrct &b) { return a.onset < b.onset; });
    return list;
}

double EDFReader::signalTime(double fileTime) const
{
    double time = fileTime;
    for (const EDFGap &gap : gaps()) {
        time -= std::clamp(fileTime - gap.start, 0.0, gap.duration);
    }
    return time;
}

double EDFReader::getExactDuration() const
{
    return bp::edfTime(m_session->header().file_duration);
}

QString EDFReader::fileTypeText() const
{
    switch (m_session->header().filetype) {
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
