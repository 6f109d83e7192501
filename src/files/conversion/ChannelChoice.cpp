#include "files/conversion/ChannelChoice.h"

#include "files/edf/EdfLayout.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kMaxRounding = 1e-4; // of a scaled limit
constexpr double kMaxRateChange = 1000.0; // either way

/// Microvolts and degrees have letters that the header lacks.
QByteArray asciiText(QString text)
{
    text.replace(QChar(0xB5), QLatin1Char('u')).replace(QChar(0x3BC), QLatin1Char('u'));
    QByteArray bytes = text.toLatin1();
    std::replace_if(
        bytes.begin(), bytes.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return bytes.trimmed();
}

/// Sets a text of the header, or returns why not.
QString assign(QByteArray &field, const QString &text, int width, const char *what)
{
    const QByteArray bytes = asciiText(text);
    if (bytes.size() > width) {
        return QStringLiteral("The %1 \"%2\" has more than %3 characters.").arg(QLatin1String(what), text).arg(width);
    }
    if (bytes == "EDF Annotations" || bytes == "BDF Annotations") {
        return QStringLiteral("A channel cannot be called \"%1\"; the format keeps that label for itself.").arg(text);
    }
    if (!text.isEmpty()) {
        field = bytes;
    }
    return QString();
}

QString scale(bp::EdfSignalHeader &channel, double factor)
{
    if (!std::isfinite(factor) || factor == 0.0) {
        return QStringLiteral("A channel cannot be scaled with %1.").arg(factor);
    }
    for (QByteArray *limit : {&channel.physicalMinimum, &channel.physicalMaximum}) {
        const double exact = limit->toDouble() * factor;
        *limit = factor == 1.0 ? *limit : bp::edfNumber(exact);
        if (limit->isEmpty() || std::fabs(limit->toDouble() - exact) > kMaxRounding * std::fabs(exact)) {
            return QStringLiteral("Scaled with %1, the limits of %2 do not fit the 8 characters of the header; choose "
                                  "a unit that suits them.")
                .arg(factor)
                .arg(QString::fromLatin1(channel.label));
        }
    }
    return QString();
}

/// Number of the channel with a label or "#number"; −1 with the reason.
int findChannel(const bp::EdfHeader &header, const QString &name, QString &error)
{
    const QStringList labels = bp::ChannelChoice::labelsOf(header);
    const int count = labels.count(name.trimmed());
    if (count == 1) {
        return labels.indexOf(name.trimmed());
    }
    bool isNumber = false;
    const int number = name.mid(1).toInt(&isNumber);
    if (count == 0 && name.startsWith(QLatin1Char('#')) && isNumber && number >= 1 && number <= labels.size()) {
        return number - 1;
    }
    error = count > 1
        ? QStringLiteral("%1 channels are called \"%2\"; name them by number, #%3 for the first.")
              .arg(count)
              .arg(name)
              .arg(labels.indexOf(name.trimmed()) + 1)
        : QStringLiteral("There is no channel \"%1\", only %2.").arg(name, labels.join(QStringLiteral(", ")));
    return -1;
}

/// @param channel as it is in the source
QString change(bp::EdfSignalHeader &channel, const EDFChannelChange &wanted)
{
    QString fault = bp::ChannelChoice::name(channel, wanted.label, wanted.unit);
    fault = fault.isEmpty() ? scale(channel, wanted.factor) : fault;
    if (!fault.isEmpty() || wanted.rate == 0.0) {
        return fault;
    }
    const double ratio = wanted.rate / channel.rate.value();
    if (!bp::ChannelChoice::isRate(wanted.rate) || ratio * kMaxRateChange < 1.0 || ratio > kMaxRateChange) {
        return QStringLiteral("A channel of %1 Hz cannot be brought to %2 Hz.")
            .arg(channel.rate.value())
            .arg(wanted.rate);
    }
    channel.rate = bp::ChannelChoice::rateOf(wanted.rate);
    return QString();
}

} // namespace

namespace bp {

QString ChannelChoice::choose(const EdfHeader &source, const QVector<EDFChannelChange> &changes)
{
    for (int i = 0; changes.isEmpty() && i < source.channels.size(); ++i) {
        m_numbers << i;
        m_channels << source.channels[i];
    }
    for (const EDFChannelChange &wanted : changes) {
        QString fault;
        const int number = findChannel(source, wanted.source, fault);
        if (number < 0) {
            return fault;
        }
        EdfSignalHeader channel = source.channels[number];
        fault = change(channel, wanted);
        if (!fault.isEmpty()) {
            return fault;
        }
        m_numbers << number;
        m_channels << channel;
    }
    return QString();
}

bool ChannelChoice::isRate(double hz)
{
    return std::isfinite(hz) && hz >= kLeastRate && hz <= kMostRate;
}

Ratio ChannelChoice::rateOf(double hz)
{
    return Ratio::of(std::llround(hz * 1e6), 1'000'000);
}

QStringList ChannelChoice::labelsOf(const EdfHeader &header)
{
    QStringList labels;
    for (const EdfSignalHeader &channel : header.channels) {
        labels << QString::fromLatin1(channel.label);
    }
    return labels;
}

QString ChannelChoice::name(EdfSignalHeader &channel, const QString &label, const QString &unit)
{
    const QString fault = assign(channel.label, label, EdfLayout::kLabelWidth, "label");
    return fault.isEmpty() ? assign(channel.unit, unit, EdfLayout::kNumberWidth, "unit") : fault;
}

} // namespace bp
