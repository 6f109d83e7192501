#include "files/EDFConverter.h"

#include "files/conversion/RecordingCopy.h"
#include "files/conversion/TextImport.h"

EDFConverter::EDFConverter(QObject *parent)
    : FileConversion(parent)
{
}

QStringList EDFConverter::channelLabels(const QString &path, QString *error)
{
    bp::EdfInput source;
    const bp::Outcome opened = source.open(path);
    if (error != nullptr) {
        *error = opened ? QString() : QStringLiteral("Cannot read %1: %2.").arg(path, opened.reason());
    }
    return opened ? bp::ChannelChoice::labelsOf(source.header()) : QStringList();
}

bool EDFConverter::crop(const QString &source, const QString &target, double from, double to)
{
    begin(target);
    bp::RecordingCopy copy(source, from, to);
    return end(run(copy, source, target));
}

bool EDFConverter::convertChannels(const QString &source, const QString &target,
                                   const QVector<EDFChannelChange> &channels)
{
    begin(target);
    bp::RecordingCopy copy(source, channels);
    return end(run(copy, source, target));
}

bool EDFConverter::convertText(const QStringList &sources, const QString &target, const EDFTextFormat &format)
{
    begin(target);
    const QString fault = targetFault(sources, target);
    return end(fault.isEmpty() ? bp::TextImport(sources, format).write(target, tick()).reason() : fault);
}

QString EDFConverter::run(bp::RecordingCopy &copy, const QString &source, const QString &target)
{
    const bp::Outcome opened = copy.open([this] { return isCancelled(); });
    const QString fault = opened ? targetFault({source}, target) : opened.reason();
    setNotice(fault.isEmpty() ? copy.notice() : QString());
    return fault.isEmpty() ? copy.write(target, tick()).reason() : fault;
}

std::function<bool(qint64, qint64)> EDFConverter::tick()
{
    return [this](qint64 done, qint64 total) {
        report(done, total);
        return !isCancelled();
    };
}
