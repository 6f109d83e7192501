#include "bci/ModelFile.h"

#include "bci/Preprocessor.h"
#include "bci/Processor.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace bp {

namespace {

const QString kFormat = QStringLiteral("BioProcessing model");
constexpr int kVersion = 1;
constexpr qint64 kMaxBytes = qint64{512} * 1024 * 1024;

bool refuse(QString &reason, const QString &path, const QString &text)
{
    reason = QStringLiteral("%1 %2.").arg(path, text);
    return false;
}

} // namespace

bool ModelFile::write(const QString &path, QString &reason) const
{
    QJsonObject names;
    for (auto it = classes.cbegin(); it != classes.cend(); ++it) {
        names.insert(QString::number(it.key()), it.value());
    }
    const QJsonObject json{{QStringLiteral("format"), kFormat},
                           {QStringLiteral("version"), kVersion},
                           {QStringLiteral("kind"), kind},
                           {QStringLiteral("rate"), rate},
                           {QStringLiteral("window"), window},
                           {QStringLiteral("step"), step},
                           {QStringLiteral("highpass"), highPass},
                           {QStringLiteral("channels"), QJsonArray::fromStringList(channels)},
                           {QStringLiteral("classes"), names},
                           {QStringLiteral("preprocessor"), pair.preprocessor->model()},
                           {QStringLiteral("processor"), pair.processor->model()}};
    QSaveFile file(path);
    const QByteArray bytes = QJsonDocument(json).toJson();
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        return refuse(reason, path, QStringLiteral("could not be written: %1").arg(file.errorString()));
    }
    return true;
}

bool ModelFile::read(const QString &path, QString &reason)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return refuse(reason, path, QStringLiteral("could not be read: %1").arg(file.errorString()));
    }
    const QJsonObject json = QJsonDocument::fromJson(file.read(kMaxBytes)).object();
    if (json.value(QLatin1String("format")).toString() != kFormat) {
        return refuse(reason, path, QStringLiteral("is no model"));
    }
    if (json.value(QLatin1String("version")).toInt() > kVersion) {
        return refuse(reason, path, QStringLiteral("was written by a newer version"));
    }
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
        classes.insert(it.key().toInt(), it.value().toString());
    }
    LearningSettings settings;
    settings.kind = kind;
    settings.channels = channels.size();
    pair = makeLearningPair(settings);
    if (!pair.preprocessor) {
        return refuse(reason, path, QStringLiteral("is a model of the kind \"%1\", which is not known").arg(kind));
    }
    if (rate <= 0 || !(window > 0.0) || !(step > 0.0) || channels.isEmpty()) {
        return refuse(reason, path, QStringLiteral("lacks its rate, window, step or channels"));
    }
    QString why;
    if (!pair.preprocessor->setModel(json.value(QLatin1String("preprocessor")).toObject(), why)
        || !pair.processor->setModel(json.value(QLatin1String("processor")).toObject(), why)) {
        return refuse(reason, path, QStringLiteral("is damaged: %1").arg(why));
    }
    pair.preprocessor->setFs(rate);
    pair.processor->setFs(rate);
    return true;
}

} // namespace bp
