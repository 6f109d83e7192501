#include "files/edf/EdfTal.h"

#include <QByteArray>
#include <QList>

#include <algorithm>

namespace {

constexpr char kDurationFollows = '\x15';
constexpr char kTextFollows = '\x14';
constexpr qint64 kMostSeconds = 100'000'000'000; // in ticks they fit 64 bits

/// Of digits with at most one point between them, in ticks.
bool parseTime(const QByteArray &text, qint64 &time)
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
    const qint64 seconds = whole.toLongLong(&fits);
    if (!fits || seconds >= kMostSeconds) {
        return false;
    }
    time = seconds * bp::kEdfTicks + fraction.leftJustified(7, '0', true).toLongLong();
    return true;
}

bool parseOnset(const QByteArray &text, qint64 &onset)
{
    const bool isNegative = text.startsWith('-');
    if (!(isNegative || text.startsWith('+')) || !parseTime(text.mid(1), onset)) {
        return false;
    }
    onset = isNegative ? -onset : onset;
    return true;
}

/// @return whether the list is well-formed
bool appendList(const QByteArray &list, bool keepsTime, QVector<bp::EdfAnnotation> &annotations)
{
    QList<QByteArray> texts = list.split(kTextFollows);
    const QList<QByteArray> times = texts.takeFirst().split(kDurationFollows);
    bp::EdfAnnotation annotation;
    if (!list.endsWith(kTextFollows) || times.size() > 2 || !parseOnset(times[0], annotation.onset)
        || (times.size() == 2 && !parseTime(times[1], annotation.duration))) {
        return false;
    }
    texts.removeLast(); // nothing follows the last text
    if (keepsTime && !texts.isEmpty() && texts[0].isEmpty()) {
        texts.removeFirst();
    }
    for (const QByteArray &text : qAsConst(texts)) {
        annotation.text = text;
        annotations << annotation;
    }
    return true;
}

} // namespace

namespace bp {

qint64 EdfTal::recordOnset(const QByteArray &block)
{
    const int end = block.indexOf(kTextFollows);
    qint64 onset = 0;
    const bool hasText = end + 1 < block.size() && block[end + 1] != kTextFollows && block[end + 1] != '\0';
    const bool parsed = end > 0 && !hasText && parseOnset(block.left(end), onset);
    return parsed && onset >= 0 ? onset : kNoTime;
}

int EdfTal::appendAnnotations(const QByteArray &block, bool keepsTime, QVector<EdfAnnotation> &annotations)
{
    int malformed = 0;
    for (const char *from = block.begin(); from < block.end();) {
        const char *to = std::find(from, block.end(), '\0');
        if (to > from) {
            const QByteArray list(from, static_cast<int>(to - from));
            malformed += appendList(list, keepsTime, annotations) ? 0 : 1;
            keepsTime = false;
        }
        from = std::find_if(to, block.end(), [](char c) { return c != '\0'; });
    }
    return malformed;
}

QByteArray EdfTal::list(bool isNegative, const QByteArray &onset, const QByteArray &duration, const QByteArray &text)
{
    const QByteArray lasting = duration.isEmpty() ? QByteArray() : kDurationFollows + duration;
    return (isNegative ? '-' : '+') + onset + lasting + kTextFollows + text + kTextFollows;
}

} // namespace bp
