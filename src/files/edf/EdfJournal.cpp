#include "files/edf/EdfJournal.h"

#include "files/edf/EdfLayout.h"

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace {

constexpr const char *kTitle = "BioProcessing labels 1 ";
constexpr qint64 kLatest = std::numeric_limits<qint64>::max() / bp::kEdfWriteTicks;
constexpr qint64 kMostBytes = 64 << 20; // a million labels

bool isJournal(QFile &file)
{
    return file.read(static_cast<qint64>(qstrlen(kTitle))) == kTitle;
}

QByteArray line(const bp::EdfAnnotation &annotation)
{
    const qint64 duration = annotation.duration / bp::kEdfWriteTicks;
    return QByteArray::number(annotation.onset / bp::kEdfWriteTicks) + ' '
        + QByteArray::number(annotation.duration < 0 ? std::min<qint64>(-1, duration) : duration) + ' '
        + annotation.text + '\n';
}

bool parse(const QByteArray &line, bp::EdfAnnotation &annotation)
{
    const int first = line.indexOf(' ');
    const int second = line.indexOf(' ', first + 1);
    if (first < 1 || second < 0 || !line.endsWith('\n')) {
        return false;
    }
    bool isOnset = false;
    bool isDuration = false;
    const qint64 onset = line.left(first).toLongLong(&isOnset);
    const qint64 duration = line.mid(first + 1, second - first - 1).toLongLong(&isDuration);
    if (!isOnset || !isDuration || onset < -kLatest || onset > kLatest || duration > kLatest) {
        return false;
    }
    annotation = {onset * bp::kEdfWriteTicks, duration < 0 ? -1 : duration * bp::kEdfWriteTicks,
                  line.mid(second + 1, line.size() - second - 2)};
    return true;
}

} // namespace

namespace bp {

QString EdfJournal::pathFor(const QString &recording)
{
    return recording + QLatin1String(".labels");
}

QByteArray EdfJournal::identity(const QByteArray &header)
{
    return header.mid(EdfLayout::kStartAt, EdfLayout::kStartWidth);
}

QVector<EdfAnnotation> EdfJournal::read(const QString &recording, const QByteArray &identity)
{
    QFile file(pathFor(recording));
    QVector<EdfAnnotation> annotations;
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMostBytes || !isJournal(file)
        || file.readLine() != identity + '\n') {
        return annotations;
    }
    while (!file.atEnd()) {
        EdfAnnotation annotation;
        if (parse(file.readLine(), annotation)) {
            annotations << annotation;
        }
    }
    return annotations;
}

QVector<EdfAnnotation> EdfJournal::missing(const QVector<EdfAnnotation> &journal, const QVector<EdfAnnotation> &present)
{
    std::map<std::pair<qint64, QByteArray>, int> counts;
    for (const EdfAnnotation &annotation : present) {
        ++counts[{annotation.onset, annotation.text}];
    }
    QVector<EdfAnnotation> missing;
    for (const EdfAnnotation &annotation : journal) {
        if (--counts[{annotation.onset, annotation.text}] < 0) {
            missing << annotation;
        }
    }
    return missing;
}

bool EdfJournal::hasEntries(const QString &recording)
{
    QFile file(pathFor(recording));
    if (!file.open(QIODevice::ReadOnly) || !isJournal(file)) {
        return false;
    }
    file.readLine();
    return !file.atEnd();
}

void EdfJournal::begin(const QString &recording, const QByteArray &identity)
{
    m_file.close();
    m_file.setFileName(pathFor(recording));
    m_identity = identity;
    m_isUsable = true;
    m_isComplete = true;
    if (m_file.exists()) {
        m_isUsable = m_file.open(QIODevice::ReadOnly) && isJournal(m_file);
        m_file.close();
        m_isUsable = m_isUsable && !hasEntries(recording) && m_file.remove();
    }
}

bool EdfJournal::append(const EdfAnnotation &annotation)
{
    if (!m_isUsable || !(m_file.isOpen() || create())) {
        m_isComplete = false;
        return false;
    }
    const QByteArray bytes = line(annotation);
    const qint64 end = m_file.size();
    if (m_file.write(bytes) == bytes.size()) {
        return true;
    }
    m_isComplete = false;
    m_file.resize(end); // half a line would spoil the next one
    m_file.seek(end);
    return false;
}

bool EdfJournal::create()
{
    const QByteArray title = kTitle + m_identity + '\n';
    m_isUsable = m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered)
        && m_file.write(title) == title.size();
    if (!m_isUsable && m_file.isOpen()) {
        m_file.remove(); // half a title would pass for somebody else's file
    }
    return m_isUsable;
}

void EdfJournal::finish()
{
    if (m_file.isOpen()) {
        m_file.remove();
    }
    m_isUsable = false;
}

void EdfJournal::keep()
{
    m_file.close();
    m_isUsable = false;
}

} // namespace bp
