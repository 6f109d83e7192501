#include "files/EdfTal.h"

#include <QByteArray>

#include <edflib.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr char kDurationFollows = '\x15';
constexpr char kTextFollows = '\x14';
constexpr long long kMostSeconds = 100'000'000'000; // in 100 ns they fit 64 bits

/// Of digits with at most one point between them, in 100 ns.
bool parseTime(const QByteArray &text, long long &time)
{
    const int point = text.indexOf('.');
    const QByteArray whole = point < 0 ? text : text.left(point);
    const QByteArray fraction = point < 0 ? QByteArray("0") : text.mid(point + 1);
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (whole.isEmpty() || fraction.isEmpty() || !std::all_of(whole.begin(), whole.end(), isDigit)
        || !std::all_of(fraction.begin(), fraction.end(), isDigit)) {
        return false;
    }
    bool fits = false;
    const long long seconds = whole.toLongLong(&fits);
    time = seconds * EDFLIB_TIME_DIMENSION + fraction.leftJustified(7, '0', true).toLongLong();
    return fits && seconds < kMostSeconds;
}

bool parseOnset(const QByteArray &text, long long &onset)
{
    const bool isNegative = text.startsWith('-');
    if (!(isNegative || text.startsWith('+')) || !parseTime(text.mid(1), onset)) {
        return false;
    }
    onset = isNegative ? -onset : onset;
    return true;
}

edf_annotation_struct annotation(long long onset, long long lasting, const QByteArray &duration, const QByteArray &text)
{
    edf_annotation_struct result{};
    result.onset = onset;
    result.duration_l = lasting;
    qstrncpy(result.duration, duration.constData(), sizeof(result.duration));
    qstrncpy(result.annotation, text.constData(), sizeof(result.annotation));
    return result;
}

/// @return whether the list is well-formed
bool appendList(const QByteArray &list, bool keepsTime, QList<edf_annotation_struct> &annotations)
{
    QList<QByteArray> texts = list.split(kTextFollows);
    const QList<QByteArray> times = texts.takeFirst().split(kDurationFollows);
    long long onset = 0;
    long long lasting = -EDFLIB_TIME_DIMENSION;
    if (!list.endsWith(kTextFollows) || times.size() > 2 || !parseOnset(times[0], onset)
        || (times.size() == 2 && !parseTime(times[1], lasting))) {
        return false;
    }
    texts.removeLast(); // nothing follows the last text
    if (keepsTime && !texts.isEmpty()) {
        texts.removeFirst();
    }
    for (const QByteArray &text : qAsConst(texts)) {
        annotations << annotation(onset, lasting, times.value(1), text);
    }
    return true;
}

} // namespace

namespace bp {

long long EdfTal::recordOnset(const char *block, qint64 bytes)
{
    const QByteArray text = QByteArray::fromRawData(block, static_cast<int>(bytes));
    const int end = text.indexOf(kTextFollows);
    long long onset = 0;
    const bool parsed = end > 0 && parseOnset(text.left(end), onset);
    return parsed && onset >= 0 ? onset : kNoTime;
}

int EdfTal::appendAnnotations(const char *block, qint64 bytes, bool keepsTime,
                              QList<edf_annotation_struct> &annotations)
{
    int malformed = 0;
    const char *const end = block + bytes;
    for (const char *from = block; from < end;) {
        const char *to = std::find(from, end, '\0');
        if (to > from) {
            const QByteArray list(from, static_cast<int>(to - from));
            malformed += appendList(list, keepsTime, annotations) ? 0 : 1;
            keepsTime = false;
        }
        from = std::find_if(to, end, [](char c) { return c != '\0'; });
    }
    return malformed;
}

} // namespace bp
