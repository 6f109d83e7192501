#include "files/conversion/ChannelChoice.h"

#include "files/edf/EdfLayout.h"

#include <algorithm>
#include <cmath>

namespace {

using bp::Outcome;

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

/// Sets a text of the header.
Outcome assign(QByteArray &field, const QString &text, int width, const char *what)
{
    const QByteArray bytes = asciiText(text);
    if (bytes.size() > width) {
        return Outcome::failure(
            QStringLiteral("The %1 \"%2\" has more than %3 characters.").arg(QLatin1String(what), text).arg(width));
    }
    if (bytes == "EDF Annotations" || bytes == "BDF Annotations") {
        return Outcome::failure(
            QStringLiteral("A channel cannot be called \"%1\"; the format keeps that label for itself.").arg(text));
    }
    if (!text.isEmpty()) {
        field = bytes;
    }
    return Outcome::good();
}

Outcome scale(bp::EdfSignalHeader &channel, double factor)
{
    if (!std::isfinite(factor) || factor == 0.0) {
        return Outcome::failure(QStringLiteral("A channel cannot be scaled with %1.").arg(factor));
    }
    for (QByteArray *limit : {&channel.physicalMinimum, &channel.physicalMaximum}) {
        const double exact = limit->toDouble() * factor;
        *limit = factor == 1.0 ? *limit : bp::edfNumber(exact);
        if (limit->isEmpty() || std::fabs(limit->toDouble() - exact) > kMaxRounding * std::fabs(exact)) {
            return Outcome::failure(
                QStringLiteral("Scaled with %1, the limits of %2 do not fit the 8 characters of the header; choose "
                               "a unit that suits them.")
                    .arg(factor)
                    .arg(QString::fromLatin1(channel.label)));
        }
    }
    return Outcome::good();
}

/// Finds the number of the channel with a label, or of "#number".
Outcome findChannel(const bp::EdfHeader &header, const QString &name, int &channel)
{
    const QStringList labels = bp::ChannelChoice::labelsOf(header);
    const int count = labels.count(name.trimmed());
    const int first = labels.indexOf(name.trimmed());
    if (count == 1) {
        channel = first;
        return Outcome::good();
    }
    if (count > 1) {
        return Outcome::failure(QStringLiteral("%1 channels are called \"%2\"; name them by number, #%3 for the first.")
                                    .arg(count)
                                    .arg(name)
                                    .arg(first + 1));
    }
    bool isNumber = false;
    channel = name.mid(1).toInt(&isNumber) - 1;
    return name.startsWith(QLatin1Char('#')) && isNumber && channel >= 0 && channel < labels.size()
        ? Outcome::good()
        : Outcome::failure(
            QStringLiteral("There is no channel \"%1\", only %2.").arg(name, labels.join(QStringLiteral(", "))));
}

/// @param channel as it is in the source
Outcome change(bp::EdfSignalHeader &channel, const EDFChannelChange &wanted)
{
    const Outcome named = bp::ChannelChoice::name(channel, wanted.label, wanted.unit);
    const Outcome scaled = named ? scale(channel, wanted.factor) : named;
    if (!scaled || wanted.rate == 0.0) {
        return scaled;
    }
    const double ratio = wanted.rate / channel.rate.value();
    if (!bp::ChannelChoice::isRate(wanted.rate) || ratio * kMaxRateChange < 1.0 || ratio > kMaxRateChange) {
        return Outcome::failure(QStringLiteral("A channel of %1 Hz cannot be brought to %2 Hz.")
                                    .arg(channel.rate.value())
                                    .arg(wanted.rate));
    }
    channel.rate = bp::ChannelChoice::rateOf(wanted.rate);
    return Outcome::good();
}

} // namespace

namespace bp {

Outcome ChannelChoice::choose(const EdfHeader &source, const QVector<EDFChannelChange> &changes)
{
    for (int i = 0; changes.isEmpty() && i < source.channels.size(); ++i) {
        m_numbers << i;
        m_channels << source.channels[i];
    }
    for (const EDFChannelChange &wanted : changes) {
        int number = 0;
        const Outcome found = findChannel(source, wanted.source, number);
        if (!found) {
            return found;
        }
        EdfSignalHeader channel = source.channels[number];
        const Outcome changed = change(channel, wanted);
        if (!changed) {
            return changed;
        }
        m_numbers << number;
        m_channels << channel;
    }
    return Outcome::good();
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

Outcome ChannelChoice::name(EdfSignalHeader &channel, const QString &label, const QString &unit)
{
    const Outcome named = assign(channel.label, label, EdfLayout::kLabelWidth, "label");
    return named ? assign(channel.unit, unit, EdfLayout::kNumberWidth, "unit") : named;
}

} // namespace bp
