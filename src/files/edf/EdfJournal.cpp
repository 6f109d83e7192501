#include "files/edf/EdfJournal.h"

#include "files/edf/EdfLayout.h"

#include <map>
#include <utility>

namespace {

constexpr const char *kTitle = "BioProcessing labels 1 ";
constexpr qint64 kTicksPerUnit = bp::kEdfTicks / 10000; // of 0.1 ms
constexpr qint64 kMostBytes = 64 << 20; // a million labels

bool isJournal(QFile &file)
{
    return file.read(static_cast<qint64>(qstrlen(kTitle))) == kTitle;
}

QByteArray line(const bp::EdfJournal::Entry &entry)
{
    return QByteArray::number(entry.onset) + ' ' + QByteArray::number(entry.duration) + ' ' + entry.text + '\n';
}

bool parse(const QByteArray &line, bp::EdfJournal::Entry &entry)
{
    const int first = line.indexOf(' ');
    const int second = line.indexOf(' ', first + 1);
    if (first < 1 || second < 0 || !line.endsWith('\n')) {
        return false;
    }
    bool isOnset = false;
    bool isDuration = false;
    entry.onset = line.left(first).toLongLong(&isOnset);
    entry.duration = line.mid(first + 1, second - first - 1).toLongLong(&isDuration);
    entry.text = line.mid(second + 1, line.size() - second - 2);
    return isOnset && isDuration;
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

QList<EdfJournal::Entry> EdfJournal::read(const QString &recording, const QByteArray &identity)
{
    QFile file(pathFor(recording));
    QList<Entry> entries;
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMostBytes || !isJournal(file)
        || file.readLine() != identity + '\n') {
        return entries;
    }
    while (!file.atEnd()) {
        Entry entry{};
        if (parse(file.readLine(), entry)) {
            entries << entry;
        }
    }
    return entries;
}

QVector<EdfAnnotation> EdfJournal::missing(const QList<Entry> &entries, const QVector<EdfAnnotation> &present)
{
    std::map<std::pair<qint64, QByteArray>, int> counts;
    for (const EdfAnnotation &annotation : present) {
        ++counts[{annotation.onset, annotation.text}];
    }
    QVector<EdfAnnotation> missing;
    for (const Entry &entry : entries) {
        const EdfAnnotation annotation{entry.onset * kTicksPerUnit,
                                       entry.duration < 0 ? -1 : entry.duration * kTicksPerUnit, entry.text};
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

bool EdfJournal::append(const Entry &entry)
{
    if (!m_isUsable || !(m_file.isOpen() || create())) {
        m_isComplete = false;
        return false;
    }
    const QByteArray bytes = line(entry);
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
