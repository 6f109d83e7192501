#include "files/EDFConverter.h"

#include "base/FileUtilities.h"
#include "files/ColumnText.h"
#include "files/EdfSink.h"
#include "files/EdfSource.h"
#include "files/RateChanger.h"

#include <QLocale>

#include <algorithm>
#include <memory>

namespace {

constexpr double kTimeSlack = 1e-6; // samples
constexpr double kMaxRounding = 1e-4; // of a scaled limit
constexpr double kMaxRateChange = 1000.0; // either way
constexpr int kLabelWidth = 16;
constexpr int kUnitWidth = 8;

qint64 ticksOf(bp::Ratio step, qint64 count)
{
    return std::llround(static_cast<long double>(count) * step.num * bp::kEdfTicks / step.den);
}

bp::Ratio rateOf(double hz)
{
    return bp::Ratio::of(std::llround(hz * 1e6), 1'000'000);
}

bool isRate(double hz)
{
    return std::isfinite(hz) && hz >= 1e-3 && hz <= 1e6;
}

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

QString scale(bp::EdfChannelFacts &channel, double factor)
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

QStringList labelsOf(const bp::EdfFacts &facts)
{
    QStringList labels;
    for (const bp::EdfChannelFacts &channel : facts.channels) {
        labels << QString::fromLatin1(channel.label);
    }
    return labels;
}

/// Number of the channel with a label or "#number"; −1 with the reason.
int findChannel(const bp::EdfFacts &facts, const QString &name, QString &error)
{
    const QStringList labels = labelsOf(facts);
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

/// The part of the notes within [begin, end), moved to the new beginning.
QVector<bp::EdfNote> cut(const QVector<bp::EdfNote> &notes, qint64 begin, qint64 end)
{
    QVector<bp::EdfNote> kept;
    for (bp::EdfNote note : notes) {
        const bool lasts = note.duration > 0;
        const qint64 noteEnd = note.onset + std::max<qint64>(0, note.duration);
        if (note.onset >= end || (note.onset < begin && (!lasts || noteEnd <= begin))) {
            continue;
        }
        const qint64 onset = std::max(note.onset, begin);
        note.duration = lasts ? std::min(noteEnd, end) - onset : note.duration;
        note.onset = onset - begin;
        kept << note;
    }
    return kept;
}

QString cannot(const char *verb, const QString &path, const QString &reason)
{
    return QStringLiteral("Cannot %1 %2: %3.").arg(QLatin1String(verb), path, reason);
}

} // namespace

struct EDFConverter::Job
{
    QString sourcePath;
    QString targetPath;
    double from = 0.0;
    double to = -1.0;
    bool whole = true;
    QVector<EDFChannelChange> changes;

    bp::EdfSource source;
    bp::EdfFacts facts; ///< of the target
    QVector<int> channels; ///< numbers in the source
    std::vector<std::unique_ptr<bp::RateChanger>> changers; ///< null: copied
    bp::Ratio step;
    qint64 firstStep = 0;
    bp::EdfRecordPlan plan;
    QVector<bp::EdfNote> notes;
};

EDFConverter::EDFConverter(QObject *parent)
    : FileConversion(parent)
{
}

QStringList EDFConverter::channelLabels(const QString &path, QString *error)
{
    bp::EdfSource source;
    QString reason;
    const bool opened = source.open(path, reason);
    if (error != nullptr) {
        *error = opened ? QString() : cannot("read", path, reason);
    }
    return opened ? labelsOf(source.facts()) : QStringList();
}

bool EDFConverter::crop(const QString &source, const QString &target, double from, double to)
{
    begin(target);
    Job job;
    job.sourcePath = source;
    job.targetPath = target;
    job.from = from;
    job.to = to;
    job.whole = false;
    return end(convert(job));
}

bool EDFConverter::convertChannels(const QString &source, const QString &target,
                                   const QVector<EDFChannelChange> &channels)
{
    begin(target);
    Job job;
    job.sourcePath = source;
    job.targetPath = target;
    job.changes = channels;
    return end(convert(job));
}

bool EDFConverter::convertText(const QStringList &sources, const QString &target, const EDFTextFormat &format)
{
    begin(target);
    return end(textToEdf(sources, target, format));
}

QString EDFConverter::convert(Job &job)
{
    QString error;
    if (!job.source.open(job.sourcePath, error) || !job.source.scan([this] { return isCancelled(); }, error)) {
        return cannot("read", job.sourcePath, error);
    }
    if (job.source.hasGaps()) {
        return cannot("convert", job.sourcePath, QStringLiteral("it is a discontinuous recording with gaps"));
    }
    error = targetFault({job.sourcePath}, job.targetPath);
    if (error.isEmpty()) {
        error = chooseChannels(job);
    }
    if (error.isEmpty()) {
        error = planTime(job);
    }
    return error.isEmpty() ? copyRecords(job) : error;
}

QString EDFConverter::chooseChannels(Job &job) const
{
    const bp::EdfFacts &from = job.source.facts();
    job.facts = from;
    job.facts.channels.clear();
    for (int i = 0; job.changes.isEmpty() && i < from.channels.size(); ++i) {
        job.channels << i;
        job.facts.channels << from.channels[i];
    }
    QString error;
    for (const EDFChannelChange &change : qAsConst(job.changes)) {
        const int number = findChannel(from, change.source, error);
        if (number < 0) {
            return error;
        }
        bp::EdfChannelFacts channel = from.channels[number];
        for (const QString &fault :
             {assign(channel.label, change.label, kLabelWidth, "label"),
              assign(channel.unit, change.unit, kUnitWidth, "unit"), scale(channel, change.factor)}) {
            if (!fault.isEmpty()) {
                return fault;
            }
        }
        const double ratio = change.rate / channel.rate.value();
        if (change.rate != 0.0 && (!isRate(change.rate) || ratio * kMaxRateChange < 1.0 || ratio > kMaxRateChange)) {
            return QStringLiteral("A channel of %1 Hz cannot be brought to %2 Hz.")
                .arg(channel.rate.value())
                .arg(change.rate);
        }
        channel.rate = change.rate > 0.0 ? rateOf(change.rate) : channel.rate;
        job.channels << number;
        job.facts.channels << channel;
    }
    return QString();
}

QString EDFConverter::planTime(Job &job) const
{
    QVector<bp::Ratio> rates;
    double densest = 0.0;
    for (const bp::EdfChannelFacts &channel : qAsConst(job.facts.channels)) {
        rates << channel.rate;
        densest = std::max(densest, channel.rate.value());
    }
    job.step = bp::EdfRecordPlan::commonStep(rates);
    if (job.step.num < 1) {
        return QStringLiteral("The rates of the channels do not fit into records of one duration; choose others.");
    }
    const double stepSeconds = job.step.value();
    const double seconds = job.source.seconds();
    const double to = job.to < 0.0 ? seconds : job.to;
    if (!job.whole && !(job.from >= 0.0 && job.from < to && to <= seconds + 0.5 / densest)) {
        return QStringLiteral("%1 lasts %2 s; it cannot be cropped from %3 to %4 s.")
            .arg(job.sourcePath)
            .arg(seconds, 0, 'g', 10)
            .arg(job.from, 0, 'g', 10)
            .arg(to, 0, 'g', 10);
    }
    const auto onGrid = [&](double time) { return std::ceil(time * densest - kTimeSlack) / densest / stepSeconds; };
    job.firstStep = static_cast<qint64>(std::floor(onGrid(job.from) + kTimeSlack));
    const auto endStep = static_cast<qint64>(std::ceil(onGrid(to) - kTimeSlack));
    double bytesPerStep = 0.0;
    for (const bp::Ratio &rate : qAsConst(rates)) {
        bytesPerStep += rate.value() * stepSeconds * job.facts.sampleBytes();
    }
    if (job.step.num > 0 && bytesPerStep < 1e9 && endStep > job.firstStep) {
        job.plan = bp::EdfRecordPlan::make(job.step, endStep - job.firstStep, std::llround(bytesPerStep),
                                           job.source.recordTicks());
    }
    if (job.plan.stepsPerRecord == 0) {
        return QStringLiteral("The range or the rates do not fit into records of one duration; choose others.");
    }
    // What a whole number of records holds beyond the end comes from the signal itself where there is any.
    const qint64 planned = job.plan.stepsPerRecord * job.plan.records;
    const auto available = static_cast<qint64>(std::floor(seconds / stepSeconds + kTimeSlack));
    job.firstStep = std::max<qint64>(0, std::min(job.firstStep, std::max(available, endStep) - planned));
    for (bp::EdfChannelFacts &channel : job.facts.channels) {
        channel.samplesPerRecord = static_cast<int>(
            std::llround(channel.rate.value() * stepSeconds * static_cast<double>(job.plan.stepsPerRecord)));
    }
    const qint64 begin = ticksOf(job.step, job.firstStep);
    job.facts.moveStart(begin);
    job.notes =
        job.whole ? job.source.notes() : cut(job.source.notes(), begin, ticksOf(job.step, job.firstStep + planned));
    return QString();
}

QString EDFConverter::copyRecords(Job &job)
{
    QString error;
    bp::EdfSink sink;
    if (!sink.open(job.targetPath, job.facts, job.plan, job.notes, error)) {
        return cannot("write", job.targetPath, error);
    }
    const bp::EdfFacts &from = job.source.facts();
    for (int i = 0; i < job.channels.size(); ++i) {
        const bp::Ratio inRate = from.channels[job.channels[i]].rate;
        const bp::Ratio outRate = job.facts.channels[i].rate;
        job.changers.push_back(inRate == outRate ? nullptr : std::make_unique<bp::RateChanger>(inRate, outRate));
    }
    std::vector<qint32> samples(static_cast<std::size_t>(sink.samplesPerRecord()));
    std::vector<qint32> input;
    std::vector<double> values;
    for (qint64 record = 0; record < job.plan.records; ++record) {
        if (isCancelled()) {
            return QStringLiteral("cancelled");
        }
        const double begin = job.step.value() * static_cast<double>(job.firstStep + record * job.plan.stepsPerRecord);
        const double recordSeconds = static_cast<double>(job.source.recordTicks()) / bp::kEdfTicks;
        const double end = begin + job.step.value() * static_cast<double>(job.plan.stepsPerRecord);
        job.source.hold(static_cast<qint64>(begin / recordSeconds) - 1, static_cast<qint64>(end / recordSeconds) + 1);
        qint32 *out = samples.data();
        for (int i = 0; i < job.channels.size(); ++i) {
            const bp::EdfChannelFacts &channel = job.facts.channels[i];
            const int count = channel.samplesPerRecord;
            const auto offset = static_cast<qint64>(
                std::llround(static_cast<double>(job.firstStep) * job.step.value() * channel.rate.value()));
            const qint64 first = offset + record * count;
            const auto &changer = job.changers[static_cast<std::size_t>(i)];
            if (!changer) {
                if (!job.source.read(job.channels[i], first, count, out, error)) {
                    return cannot("read", job.sourcePath, error);
                }
            } else {
                input.resize(static_cast<std::size_t>(changer->inputCount(first, count)));
                values.resize(static_cast<std::size_t>(count));
                if (!job.source.read(job.channels[i], changer->firstInput(first), static_cast<int>(input.size()),
                                     input.data(), error)) {
                    return cannot("read", job.sourcePath, error);
                }
                changer->process(input, first, count, values.data());
                std::transform(values.begin(), values.end(), out, [&channel](double value) {
                    return static_cast<qint32>(
                        std::lround(std::clamp<double>(value, channel.digitalMinimum, channel.digitalMaximum)));
                });
            }
            out += count;
        }
        if (!sink.writeRecord(samples, error)) {
            return cannot("write", job.targetPath, error);
        }
        report(record + 1, job.plan.records);
    }
    return isCancelled()     ? QStringLiteral("cancelled")
        : sink.commit(error) ? QString()
                             : cannot("write", job.targetPath, error);
}

QString EDFConverter::textToEdf(const QStringList &sources, const QString &target, const EDFTextFormat &format)
{
    QString error = targetFault(sources, target);
    if (!error.isEmpty()) {
        return error;
    }
    if (!isRate(format.rate)) {
        return QStringLiteral("Text needs a sampling rate above 0 Hz.");
    }
    bp::ColumnText text(sources, format.columns, format.hasLabelLine);
    const auto tick = [this](qint64 done, qint64 total) {
        report(done, total);
        return !isCancelled();
    };
    std::vector<bp::ColumnRange> ranges;
    if (!text.measure(ranges, tick, error)) {
        return error;
    }
    const QStringList labels = format.labels.isEmpty() ? text.labels() : format.labels;
    if (labels.size() != static_cast<int>(ranges.size())) {
        return QStringLiteral("There are %1 columns, but %2 labels.").arg(ranges.size()).arg(labels.size());
    }
    bp::EdfFacts facts;
    facts.bdf = target.endsWith(QLatin1String(".bdf"), Qt::CaseInsensitive);
    facts.plus = true;
    facts.start = format.start.isValid() ? QDateTime(format.start.date(), format.start.time(), Qt::UTC)
                                         : QDateTime(QDate(1985, 1, 1), QTime(0, 0), Qt::UTC);
    facts.patient = "X X X X";
    facts.recording = format.start.isValid() ? "Startdate "
            + QLocale::c().toString(facts.start, QStringLiteral("dd-MMM-yyyy")).toUpper().toLatin1() + " X X X"
                                             : QByteArray("Startdate X X X X");
    const bp::Ratio rate = rateOf(format.rate);
    const bp::Ratio step{rate.den, rate.num};
    const bp::EdfRecordPlan plan = bp::EdfRecordPlan::make(
        step, text.rows(), static_cast<qint64>(ranges.size()) * facts.sampleBytes(), bp::kEdfTicks);
    if (plan.stepsPerRecord == 0) {
        return QStringLiteral("A rate of %1 Hz does not fit into records of one duration; choose another.")
            .arg(format.rate);
    }
    for (int i = 0; i < labels.size(); ++i) {
        bp::EdfChannelFacts channel;
        for (const QString &fault : {assign(channel.label, labels[i], kLabelWidth, "label"),
                                     assign(channel.unit, format.unit, kUnitWidth, "unit")}) {
            if (!fault.isEmpty()) {
                return fault;
            }
        }
        channel.samplesPerRecord = static_cast<int>(plan.stepsPerRecord);
        if (!ranges[static_cast<std::size_t>(i)].setLimits(channel, facts.bdf)) {
            return QStringLiteral("The values of %1 are too large or too small for the format; choose another unit.")
                .arg(labels[i]);
        }
        facts.channels << channel;
    }
    bp::EdfSink sink;
    if (!sink.open(target, facts, plan, {}, error)) {
        return cannot("write", target, error);
    }
    const auto perRecord = static_cast<std::size_t>(plan.stepsPerRecord);
    std::vector<qint32> samples(perRecord * ranges.size());
    std::vector<double> row(ranges.size());
    bool more = text.rewind(error);
    for (qint64 record = 0; record < plan.records && error.isEmpty(); ++record) {
        for (std::size_t k = 0; k < perRecord && error.isEmpty(); ++k) {
            more = more && text.readRow(row, error); // behind the end, the last row stays
            for (std::size_t c = 0; c < row.size(); ++c) {
                const bp::EdfChannelFacts &channel = facts.channels[static_cast<int>(c)];
                const double digital =
                    channel.digitalMinimum + (row[c] - channel.physicalMinimum.toDouble()) / channel.gain();
                samples[c * perRecord + k] = static_cast<qint32>(
                    std::llround(std::clamp<double>(digital, channel.digitalMinimum, channel.digitalMaximum)));
            }
        }
        if (!tick(text.bytesRead(), text.totalBytes())) {
            return QStringLiteral("cancelled");
        }
        QString fault;
        if (error.isEmpty() && !sink.writeRecord(samples, fault)) {
            return cannot("write", target, fault);
        }
    }
    QString fault;
    return !error.isEmpty() ? error : sink.commit(fault) ? QString() : cannot("write", target, fault);
}
