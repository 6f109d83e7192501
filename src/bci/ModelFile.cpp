#include "bci/ModelFile.h"

#include "bci/Preprocessor.h"
#include "bci/Processor.h"
#include "common/SaveFile.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <exception>
#include <vector>

namespace bp {

namespace {

const QString kFormat = QStringLiteral("BioProcessing model");
constexpr int kVersion = 1;
constexpr qint64 kMaxBytes = qint64{512} * 1024 * 1024;
constexpr qint64 kPieceBytes = qint64{1} << 20;

bool refuse(QString &reason, const QString &path, const QString &text)
{
    reason = QStringLiteral("%1 %2").arg(path, text);
    if (!reason.endsWith(QLatin1Char('.'))) {
        reason += QLatin1Char('.');
    }
    return false;
}

/// Reads piece by piece: a sequential file has no size and may have no end.
bool readAll(QFile &file, QByteArray &bytes)
{
    while (bytes.size() <= kMaxBytes) {
        const QByteArray piece = file.read(kPieceBytes);
        if (piece.isEmpty()) {
            return true;
        }
        bytes += piece;
    }
    return false;
}

/// As SolverModel counts them.
float samplesIn(double seconds, int rate)
{
    return static_cast<float>(rate) * static_cast<float>(seconds);
}

} // namespace

std::size_t ModelFile::windowSamples() const
{
    return static_cast<std::size_t>(samplesIn(window, rate));
}

std::size_t ModelFile::stepSamples() const
{
    return std::max<std::size_t>(1, static_cast<std::size_t>(samplesIn(step, rate)));
}

QString ModelFile::fault() const
{
    if (rate <= 0 || !(window > 0.0) || !(step > 0.0) || channels.isEmpty()) {
        return QStringLiteral("lacks its rate, window, step or channels");
    }
    if (rate > kMaxRate) {
        return QStringLiteral("has a rate of %1 Hz, and %2 Hz is the most").arg(rate).arg(kMaxRate);
    }
    const float most = static_cast<float>(kMaxWindowSamples) / static_cast<float>(channels.size());
    if (!(samplesIn(window, rate) >= 1.0f) || !(samplesIn(window, rate) <= most)) {
        return QStringLiteral("has a window of %1 s, which cannot be used for %2 channels at %3 Hz")
            .arg(window)
            .arg(channels.size())
            .arg(rate);
    }
    if (!(samplesIn(step, rate) <= static_cast<float>(kMaxWindowSamples))) {
        return QStringLiteral("has a step of %1 s, which cannot be used").arg(step);
    }
    if (!(highPass >= 0.0 && highPass < rate / 2.0)) {
        return QStringLiteral("has a high-pass of %1 Hz, which cannot be used at %2 Hz").arg(highPass).arg(rate);
    }
    if (channels.contains(QString()) || QStringList(channels).removeDuplicates() > 0) {
        return QStringLiteral("has a channel without a name, or two of one name: %1")
            .arg(channels.join(QStringLiteral(", ")));
    }
    if (classes.isEmpty() || classes.values().contains(QString())) {
        return QStringLiteral("has a class without a name, or no class");
    }
    return {};
}

bool ModelFile::write(const QString &path, QString &reason) const
{
    const QJsonObject processor = pair.processor ? pair.processor->model() : QJsonObject();
    if (!pair.preprocessor || processor.isEmpty()) {
        return refuse(reason, path, QStringLiteral("was not written: there is no trained pair"));
    }
    const QString unusable = fault();
    if (!unusable.isEmpty()) {
        return refuse(reason, path, QStringLiteral("was not written: the model ") + unusable);
    }
    QJsonObject names;
    for (auto it = classes.cbegin(); it != classes.cend(); ++it) {
        names.insert(QString::number(it.key()), it.value());
    }
    const QJsonObject json{
        {QStringLiteral("format"), kFormat},     {QStringLiteral("version"), kVersion},
        {QStringLiteral("kind"), kind},          {QStringLiteral("rate"), rate},
        {QStringLiteral("window"), window},      {QStringLiteral("step"), step},
        {QStringLiteral("highpass"), highPass},  {QStringLiteral("channels"), QJsonArray::fromStringList(channels)},
        {QStringLiteral("classes"), names},      {QStringLiteral("preprocessor"), pair.preprocessor->model()},
        {QStringLiteral("processor"), processor}};
    const QByteArray bytes = QJsonDocument(json).toJson();
    if (bytes.size() > kMaxBytes) {
        return refuse(reason, path, QStringLiteral("was not written: the model is bigger than 512 MB"));
    }
    const QString fault = bp::saveFile(path, bytes);
    return fault.isEmpty() || refuse(reason, path, QStringLiteral("could not be written: %1").arg(fault));
}

bool ModelFile::read(const QString &path, QString &reason)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return refuse(reason, path, QStringLiteral("could not be read: %1").arg(file.errorString()));
    }
    QByteArray bytes;
    if (!readAll(file, bytes)) {
        return refuse(reason, path, QStringLiteral("is bigger than any model (512 MB)"));
    }
    const QJsonObject json = QJsonDocument::fromJson(bytes).object();
    bytes.clear();
    if (json.value(QLatin1String("format")).toString() != kFormat) {
        return refuse(reason, path, QStringLiteral("is no model"));
    }
    const int version = json.value(QLatin1String("version")).toInt();
    if (version > kVersion) {
        return refuse(reason, path, QStringLiteral("was written by a newer version"));
    }
    if (version < 1 || !json.value(QLatin1String("highpass")).isDouble()) {
        return refuse(reason, path, QStringLiteral("lacks its version or high-pass"));
    }
    return readJson(path, json, reason);
}

bool ModelFile::readJson(const QString &path, const QJsonObject &json, QString &reason)
{
    kind = json.value(QLatin1String("kind")).toString();
    rate = json.value(QLatin1String("rate")).toInt();
    window = json.value(QLatin1String("window")).toDouble();
    step = json.value(QLatin1String("step")).toDouble();
    highPass = json.value(QLatin1String("highpass")).toDouble();
    channels.clear();
    for (const QJsonValue &name : json.value(QLatin1String("channels")).toArray()) {
        channels << name.toString();
    }
    classes.clear();
    const QJsonObject names = json.value(QLatin1String("classes")).toObject();
    for (auto it = names.begin(); it != names.end(); ++it) {
        bool isNumber = false;
        classes.insert(it.key().toInt(&isNumber), it.value().toString());
        if (!isNumber) {
            return refuse(reason, path, QStringLiteral("is damaged: the class \"%1\" is no number").arg(it.key()));
        }
    }
    LearningSettings settings;
    settings.kind = kind;
    settings.channels = channels.size();
    pair = makeLearningPair(settings);
    if (!pair.preprocessor) {
        return refuse(reason, path, QStringLiteral("is a model of the kind \"%1\", which is not known").arg(kind));
    }
    QString why = fault();
    if (!why.isEmpty()) {
        return refuse(reason, path, why);
    }
    pair.preprocessor->setFs(rate); // by which settings are judged
    if (!pair.preprocessor->setModel(json.value(QLatin1String("preprocessor")).toObject(), why)
        || !pair.processor->setModel(json.value(QLatin1String("processor")).toObject(), why)) {
        return refuse(reason, path, QStringLiteral("is damaged: %1").arg(why));
    }
    pair.preprocessor->setFs(rate);
    pair.processor->setFs(rate);
    return judgesSilence()
        || refuse(reason, path,
                  QStringLiteral("is damaged: its preprocessor, processor, channels and window do not go together"));
}

bool ModelFile::judgesSilence()
{
    std::vector<std::vector<float>> silence(static_cast<std::size_t>(channels.size()),
                                            std::vector<float>(windowSamples()));
    std::vector<std::vector<float>> features;
    std::vector<std::vector<float>> answer;
    try {
        pair.preprocessor->doPreprocess(&silence, &features);
        pair.processor->passThrough(&features, &answer);
    } catch (const std::exception &) { // features that do not fit, or no memory for the window
        return false;
    }
    const bool isJudged =
        pair.processor->getResults().contains(pair.resultName) && !answer.empty() && !answer.front().empty();
    pair.processor->ResetTrainData();
    return isJudged;
}

} // namespace bp
