#include "learning/Recording.h"

#include "commands/Refusal.h"
#include "files/EDFReader.h"
#include "files/TextTable.h"
#include "filters/ButterworthFilter.h"

#include <QFileInfo>

#include <algorithm>
#include <cmath>

namespace {

bool isFinite(const std::vector<float> &row)
{
    return std::all_of(row.begin(), row.end(), [](float value) { return std::isfinite(value); });
}

constexpr int kHighPassOrder = 4;

bool isText(const QString &path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    return suffix == QLatin1String("txt") || suffix == QLatin1String("csv") || suffix == QLatin1String("tsv");
}

std::vector<int> chooseChannels(const QString &path, const QStringList &available, const QStringList &wanted)
{
    std::vector<int> chosen;
    for (const QString &name : wanted) {
        const int index = available.indexOf(name);
        if (available.count(name) > 1) {
            refuse(QStringLiteral("%1 has %2 channels of the name \"%3\": rename all but one, or choose others with "
                                  "--channels.")
                       .arg(path)
                       .arg(available.count(name))
                       .arg(name));
        }
        if (index < 0) {
            refuse(QStringLiteral("%1 has no channel \"%2\", only %3.")
                       .arg(path, name, available.join(QStringLiteral(", "))));
        }
        chosen.push_back(index);
    }
    return chosen;
}

Recording readText(const QString &path, const QStringList &channels, double rate)
{
    if (rate <= 0.0) {
        refuseUsage(QStringLiteral("%1 is a text: say its sampling rate with --rate HZ.").arg(path));
    }
    std::vector<std::vector<double>> columns;
    QString reason;
    if (!bp::readTextTable(path, columns, reason)) {
        refuse(reason);
    }
    Recording recording;
    recording.path = path;
    recording.rate = rate;
    QStringList available;
    for (std::size_t i = 1; i <= columns.size(); ++i) {
        available << QString::number(i);
    }
    recording.names = channels.isEmpty() ? available : channels;
    for (const int index : chooseChannels(path, available, recording.names)) {
        const std::vector<double> &column = columns[static_cast<std::size_t>(index)];
        recording.rows.emplace_back(column.begin(), column.end());
    }
    return recording;
}

Recording readEdf(const QString &path, const QStringList &channels)
{
    EDFReader reader(path);
    if (!reader.open()) {
        refuse(reader.lastError());
    }
    Recording recording;
    recording.path = path;
    recording.rate = static_cast<double>(reader.getSampleRate());
    QStringList available;
    for (int i = 0; i < reader.getChannelCount(); ++i) {
        available << reader.getChannelName(i);
        if (channels.isEmpty() && reader.getChannelSampleRate(i) == reader.getSampleRate()) {
            recording.names << available.last();
        }
    }
    if (!channels.isEmpty()) {
        recording.names = channels;
    }
    for (const int index : chooseChannels(path, available, recording.names)) {
        if (recording.rows.empty()) {
            recording.rate = static_cast<double>(reader.getChannelSampleRate(index));
        } else if (static_cast<double>(reader.getChannelSampleRate(index)) != recording.rate) {
            refuse(QStringLiteral("%1: the channels have different rates, choose some of one rate with --channels.")
                       .arg(path));
        }
        const auto count = static_cast<unsigned>(reader.getChannelSampleCount(index));
        recording.rows.push_back(reader.getChannelDataFloat(static_cast<unsigned>(index), 0, count));
    }
    for (const AnnotationStrct &annotation : reader.annotations()) {
        recording.events.push_back({annotation.onset, annotation.text});
    }
    return recording;
}

} // namespace

Recording Recording::read(const QString &path, const QStringList &channels, double textRate)
{
    Recording recording = isText(path) ? readText(path, channels, textRate) : readEdf(path, channels);
    if (recording.size() == 0 || recording.rate <= 0.0) {
        refuse(QStringLiteral("%1 has no signal.").arg(path));
    }
    if (!std::all_of(recording.rows.begin(), recording.rows.end(), isFinite)) {
        refuse(QStringLiteral("%1 holds values that are no numbers: choose other channels with --channels.").arg(path));
    }
    return recording;
}

void Recording::arrange(const QStringList &order)
{
    if (names == order) {
        return;
    }
    std::vector<std::vector<float>> arranged;
    for (const QString &name : order) {
        const int row = names.indexOf(name);
        if (row < 0) {
            refuse(QStringLiteral("%1 has no channel \"%2\" as the recording before it has, only %3: choose those that "
                                  "all have with --channels.")
                       .arg(path, name, names.join(QStringLiteral(", "))));
        }
        arranged.push_back(std::move(rows[static_cast<std::size_t>(row)]));
    }
    rows = std::move(arranged);
    names = order;
}

void Recording::highPass(double hz)
{
    if (hz == 0.0) {
        return;
    }
    if (!(hz < rate / 2.0)) {
        refuseUsage(QStringLiteral("--highpass %1 needs a rate above %2 Hz.").arg(hz).arg(2.0 * hz));
    }
    const std::unique_ptr<ButterworthFilter> filter = makeHighPass(rate, hz);
    for (std::vector<float> &row : rows) {
        const float offset = row.front();
        for (float &sample : row) {
            sample -= offset;
        }
        filter->Reset();
        filter->Process(row);
    }
}

std::unique_ptr<ButterworthFilter> makeHighPass(double rate, double hz)
{
    return ButterworthFilter::makeStable(AbstractFilter::HighPass, kHighPassOrder, static_cast<float>(rate),
                                         static_cast<float>(hz));
}
