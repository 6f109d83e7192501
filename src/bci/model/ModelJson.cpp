#include "bci/model/ModelJson.h"

#include <QByteArray>
#include <QJsonArray>
#include <QtEndian>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

namespace {

constexpr int kVersion = 1;
static_assert(sizeof(float) == sizeof(quint32) && std::numeric_limits<float>::is_iec559, "floats of the file format");

/// Reads an array element by element.
template <class T, class Read> bool toVector(const QJsonValue &json, std::vector<T> &values, Read read)
{
    if (!json.isArray()) {
        return false;
    }
    const QJsonArray array = json.toArray();
    std::vector<T> found(static_cast<std::size_t>(array.size()));
    for (int i = 0; i < array.size(); ++i) {
        if (!read(array.at(i), found[static_cast<std::size_t>(i)])) {
            return false;
        }
    }
    values = std::move(found);
    return true;
}

bool toBand(const QJsonValue &json, bp::Band &band)
{
    const QJsonArray edges = json.toArray();
    return edges.size() == 2 && bp::toFloat(edges.at(0), band.first) && bp::toFloat(edges.at(1), band.second);
}

} // namespace

QJsonObject bp::header(const QString &kind)
{
    return {{QStringLiteral("kind"), kind}, {QStringLiteral("version"), kVersion}};
}

bool bp::checkHeader(const QJsonObject &model, const QString &kind, QString &reason)
{
    const QString found = model.value(QStringLiteral("kind")).toString();
    if (found != kind) {
        reason = QStringLiteral("This is a model of %1, not of %2.")
                     .arg(found.isEmpty() ? QStringLiteral("an unknown kind") : found, kind);
        return false;
    }
    int version = 0;
    if (!toInt(model.value(QStringLiteral("version")), version) || version != kVersion) {
        reason = QStringLiteral("The %1 model has a version other than %2.").arg(kind).arg(kVersion);
        return false;
    }
    return true;
}

bool bp::damaged(const QString &kind, const char *key, QString &reason)
{
    reason = QStringLiteral("The %1 model is damaged: \"%2\" is missing or does not fit.")
                 .arg(kind, QString::fromLatin1(key));
    return false;
}

QJsonValue bp::fromFloats(const std::vector<float> &values)
{
    QByteArray bytes(static_cast<int>(values.size() * sizeof(float)), Qt::Uninitialized);
    for (std::size_t i = 0; i < values.size(); ++i) {
        quint32 bits = 0;
        std::memcpy(&bits, &values[i], sizeof bits);
        qToLittleEndian(bits, bytes.data() + i * sizeof bits);
    }
    return QString::fromLatin1(bytes.toBase64());
}

bool bp::toFloats(const QJsonValue &json, std::vector<float> &values)
{
    if (!json.isString()) {
        return false;
    }
    const auto decoded =
        QByteArray::fromBase64Encoding(json.toString().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    const auto size = static_cast<std::size_t>(decoded.decoded.size());
    if (!decoded || size % sizeof(float) != 0) {
        return false;
    }
    values.resize(size / sizeof(float));
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto bits = qFromLittleEndian<quint32>(decoded.decoded.constData() + i * sizeof(quint32));
        std::memcpy(&values[i], &bits, sizeof bits);
    }
    return true;
}

QJsonValue bp::fromRows(const std::vector<std::vector<float>> &rows)
{
    QJsonArray array;
    for (const std::vector<float> &row : rows) {
        array.append(fromFloats(row));
    }
    return array;
}

bool bp::toRows(const QJsonValue &json, std::vector<std::vector<float>> &rows)
{
    return toVector(json, rows, toFloats);
}

QJsonValue bp::fromLabels(const std::vector<int> &labels)
{
    QJsonArray array;
    for (const int label : labels) {
        array.append(label);
    }
    return array;
}

bool bp::toLabels(const QJsonValue &json, std::vector<int> &labels)
{
    return toVector(json, labels, toInt);
}

QJsonValue bp::fromBands(const std::vector<Band> &bands)
{
    QJsonArray array;
    for (const Band &band : bands) {
        array.append(QJsonArray{static_cast<double>(band.first), static_cast<double>(band.second)});
    }
    return array;
}

bool bp::toBands(const QJsonValue &json, std::vector<Band> &bands)
{
    return toVector(json, bands, toBand);
}

bool bp::toInt(const QJsonValue &json, int &value)
{
    const double number = json.toDouble(0.5); // any other type gives 0.5, which is not whole
    if (std::abs(number) > static_cast<double>(std::numeric_limits<int>::max()) || number != std::floor(number)) {
        return false;
    }
    value = static_cast<int>(number);
    return true;
}

bool bp::toFloat(const QJsonValue &json, float &value)
{
    const double number = json.toDouble(std::numeric_limits<double>::infinity());
    if (!(std::abs(number) <= static_cast<double>(std::numeric_limits<float>::max()))) {
        return false;
    }
    value = static_cast<float>(number);
    return true;
}

bool bp::toBool(const QJsonValue &json, bool &value)
{
    if (!json.isBool()) {
        return false;
    }
    value = json.toBool();
    return true;
}

std::vector<bp::Band> bp::plainBands(const std::vector<QPair<float, float>> &bands)
{
    std::vector<Band> plain;
    plain.reserve(bands.size());
    for (const QPair<float, float> &band : bands) {
        plain.emplace_back(band.first, band.second);
    }
    return plain;
}

QJsonObject bp::bandModel(const QString &kind, int fs, const std::vector<Band> &bands)
{
    QJsonObject model = header(kind);
    model.insert(QStringLiteral("fs"), fs);
    model.insert(QStringLiteral("bands"), fromBands(bands));
    return model;
}

bool bp::readBandModel(const QJsonObject &model, const QString &kind, int &fs, std::vector<Band> &bands,
                       QString &reason)
{
    if (!checkHeader(model, kind, reason)) {
        return false;
    }
    if (!toInt(model.value(QStringLiteral("fs")), fs)) {
        return damaged(kind, "fs", reason);
    }
    return toBands(model.value(QStringLiteral("bands")), bands) || damaged(kind, "bands", reason);
}
