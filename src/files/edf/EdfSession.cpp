#include "files/edf/EdfSession.h"

#include "common/BPCommon.h"
#include "files/edf/EdfFileScan.h"
#include "files/edf/EdfLibrary.h"

#include <QDebug>

#include <edflib.h>

namespace {

constexpr int kNoFileType = -1;

static_assert(bp::kEdfTicks == EDFLIB_TIME_DIMENSION, "times go to and from EDFlib as they are");

/// EDFlib adds the sizes up in 32 bits, and then reads beyond its buffers.
bool isOversized(const bp::EdfFileScan &scan)
{
    return scan.layout().recordBytes > bp::EdfLayout::kMostRecordBytes;
}

/// Whether the data may be sound although EDFlib refused the file with that code.
bool mayHaveStandIn(int code, bool shares)
{
    return code == EDFLIB_FILE_CONTAINS_FORMAT_ERRORS || code == EDFLIB_FILE_IS_DISCONTINUOUS
        || code == EDFLIB_FILE_READ_ERROR // also of an empty file
        || (code == EDFLIB_FILE_ALREADY_OPENED && shares);
}

edf_annotation_struct toLibrary(const bp::EdfAnnotation &annotation)
{
    edf_annotation_struct result{};
    result.onset = annotation.onset;
    result.duration_l = annotation.duration < 0 ? -EDFLIB_TIME_DIMENSION : annotation.duration;
    if (annotation.duration >= 0) {
        qstrncpy(result.duration, bp::edfSeconds(annotation.duration).constData(), sizeof(result.duration));
    }
    qstrncpy(result.annotation, annotation.text.constData(), sizeof(result.annotation));
    return result;
}

} // namespace

namespace bp {

EdfSession::EdfSession()
    : m_header(std::make_unique<edf_hdr_struct>())
{
    m_header->filetype = kNoFileType;
}

EdfSession::~EdfSession()
{
    close();
}

Outcome EdfSession::open(const QString &path, bool shares)
{
    forget();
    m_path = path;
    EdfFileScan scan(m_path);
    const int code = openInLibrary(scan, shares);
    if (code == 0) {
        m_handle = m_header->handle;
        return Outcome::good();
    }
    qDebug("%s", EdfLibrary::debugMessage(code));
    forget();
    if (isOversized(scan)) {
        return Outcome::failure(QStringLiteral("it has format errors: its data records are too large"));
    }
    return scan.outcome() || !mayHaveStandIn(code, shares) ? Outcome::failure(EdfLibrary::errorText(code))
                                                           : scan.outcome();
}

/// Returns 0 or EDFlib's code.
int EdfSession::openInLibrary(EdfFileScan &scan, bool shares)
{
    if (isOversized(scan)) {
        return EDFLIB_FILE_CONTAINS_FORMAT_ERRORS;
    }
    int code = EdfLibrary::openForReading(m_path, *m_header, EDFLIB_READ_ALL_ANNOTATIONS);
    if (code == 0 && (scan.misleadsLibrary() || !scan.outcome())) {
        // EDFlib takes a day that no month has, limits that are no numbers, and annotations of the other format.
        EdfLibrary::close(m_header->handle);
        code = EDFLIB_FILE_CONTAINS_FORMAT_ERRORS;
    }
    if (mayHaveStandIn(code, shares)) {
        code = openStandIn(scan, code);
    }
    if (code == 0 && !m_records.open(m_path, scan.layout(), m_header->edfsignals)) {
        EdfLibrary::close(m_header->handle);
        code = EDFLIB_FILE_READ_ERROR;
    }
    return code;
}

/// For a file that EDFlib refused with that code.
int EdfSession::openStandIn(EdfFileScan &scan, int code)
{
    scan.readAnnotations();
    m_standIn = scan.outcome() ? scan.standIn() : nullptr;
    if (!m_standIn) {
        return code;
    }
    BPCommon::log(BPCommon::LogEdfReader, "EDFReader::internalOpen reads a copy with a mended header: %s",
                  m_standIn->fileName());
    code = EdfLibrary::openForReading(m_standIn->fileName(), *m_header, EDFLIB_READ_ALL_ANNOTATIONS);
    if (code != 0) {
        return code;
    }
    m_header->datarecords_in_file = scan.records();
    m_header->file_duration = m_header->datarecord_duration * scan.records();
    m_header->starttime_subsecond = scan.firstOnset();
    for (int i = 0; i < m_header->edfsignals; ++i) {
        m_header->signalparam[i].smp_in_file = m_header->signalparam[i].smp_in_datarecord * scan.records();
    }
    for (const EdfAnnotation &annotation : scan.annotations()) {
        m_annotations << toLibrary(annotation);
    }
    m_header->annotations_in_file = m_annotations.size();
    for (const EdfPause &pause : scan.pauses()) {
        m_gaps << EDFGap{edfTime(pause.record * scan.recordTicks()), edfTime(pause.start), edfTime(pause.duration)};
    }
    m_notice = scan.notice();
    return 0;
}

QVector<EdfAnnotation> EdfSession::annotations() const
{
    QVector<EdfAnnotation> annotations;
    for (const edf_annotation_struct &annotation : m_annotations) {
        annotations << EdfAnnotation{annotation.onset, annotation.duration_l < 0 ? -1 : annotation.duration_l,
                                     QByteArray(annotation.annotation)};
    }
    return annotations;
}

bool EdfSession::readAnnotations()
{
    if (m_standIn || !isOpen()) {
        return isOpen(); // EDFlib does not have them
    }
    m_annotations.clear();
    bool isComplete = true;
    for (long long i = 0; i < m_header->annotations_in_file; ++i) {
        edf_annotation_struct annotation{};
        const int code = edf_get_annotation(m_handle, static_cast<int>(i), &annotation);
        if (code == 0) {
            m_annotations << annotation;
        } else {
            BPCommon::log(BPCommon::LogEdfReader, "EDFReader::takeCurrentAnnotations code %i index %i", code, i);
            isComplete = false;
        }
    }
    addJournal();
    return isComplete;
}

/// A program that is killed while it closes a recording leaves one that seems complete, but may lack annotations.
void EdfSession::addJournal()
{
    const QByteArray identity = EdfJournal::identity(m_records.layout().headerBytes);
    const QVector<EdfAnnotation> missing = EdfJournal::missing(EdfJournal::read(m_path, identity), annotations());
    for (const EdfAnnotation &annotation : missing) {
        m_annotations << toLibrary(annotation);
    }
    if (!missing.isEmpty()) {
        const bool isPlus =
            m_header->filetype == EDFLIB_FILETYPE_EDFPLUS || m_header->filetype == EDFLIB_FILETYPE_BDFPLUS;
        m_notice = EdfFileScan::missingNotice(m_path, missing.size(), isPlus);
    }
}

void EdfSession::close()
{
    if (isOpen()) {
        EdfLibrary::close(m_handle);
        m_handle = -1;
    }
    m_standIn.reset();
    m_records.close();
}

void EdfSession::forget()
{
    close();
    m_gaps.clear();
    m_notice.clear();
    m_annotations.clear();
    *m_header = {};
    m_header->filetype = kNoFileType;
}

} // namespace bp
