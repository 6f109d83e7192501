#include "algorithms/UnitParams.h"

#include "common/BPCommon.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QMap>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>
#include <optional>

namespace {

/// XML has no way to write control characters; one of them would make the whole document unreadable.
QString xmlText(QString text)
{
    const auto isForbidden = [](QChar character) {
        const ushort code = character.unicode();
        return (code < 0x20 && code != '\t' && code != '\n' && code != '\r') || code >= 0xFFFE;
    };
    std::replace_if(text.begin(), text.end(), isForbidden, QLatin1Char(' '));
    return text;
}

/// A value that a client sent as text, number or boolean; nothing for anything else.
std::optional<QString> valueText(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::String:
        return value.toString();
    case QJsonValue::Double:
        return QString::number(value.toDouble(), 'g', 15);
    case QJsonValue::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    default:
        return std::nullopt;
    }
}

bool isTextOrAbsent(const QJsonValue &value)
{
    return value.isString() || value.isUndefined();
}

/// Moves to the start element "prop", unless the reader is there, but not out of the element that it stands in.
bool findProperties(QXmlStreamReader &reader)
{
    const auto isFound = [&reader] { return reader.isStartElement() && reader.name() == QLatin1String("prop"); };
    for (int depth = 0; !isFound();) {
        reader.readNext();
        if (reader.isStartElement()) {
            ++depth;
        } else if (reader.atEnd() || (reader.isEndElement() && --depth < 0)) {
            return false;
        }
    }
    return true;
}

} // namespace

QString custom_param::getTitle() const
{
    return QCoreApplication::translate("Generic", label.toUtf8().constData());
}

int UnitParams::indexOf(const QString &key) const
{
    const auto found = std::find_if(m_params.cbegin(), m_params.cend(),
                                    [&key](const custom_param &param) { return param.key == key; });
    return found != m_params.cend() ? static_cast<int>(found - m_params.cbegin()) : -1;
}

void UnitParams::push_back(const custom_param &param)
{
    m_params.push_back(param);
}

QString &UnitParams::operator[](const QString &key)
{
    const int index = indexOf(key);
    m_scratch.clear();
    return index >= 0 ? m_params[index].currentValue : m_scratch;
}

QString UnitParams::getParamValue(const QString &key) const
{
    const int index = indexOf(key);
    return index >= 0 ? m_params.at(index).getValue() : QString();
}

bool UnitParams::contain(const QString &key) const
{
    return indexOf(key) >= 0;
}

QStringList UnitParams::getParamNames() const
{
    QStringList names;
    for (const custom_param &param : m_params) {
        names << param.key;
    }
    return names;
}

QString UnitParams::getParamTitle(const QString &key) const
{
    const int index = indexOf(key);
    return index >= 0 ? m_params.at(index).getTitle() : QString();
}

void UnitParams::setParamValue(const QString &key, const QString &value)
{
    const int index = indexOf(key);
    if (index >= 0) {
        m_params[index].currentValue = value;
    }
}

bool UnitParams::isCurrentValEmpty(const QString &key) const
{
    const int index = indexOf(key);
    return index < 0 || m_params.at(index).currentValue.isEmpty();
}

void UnitParams::initDefaultValues()
{
    for (custom_param &param : m_params) {
        param.currentValue = param.defaultValue;
    }
}

bool UnitParams::isChangedParam(const UnitParams &other) const
{
    return m_params.size() != other.m_params.size()
        || std::any_of(m_params.cbegin(), m_params.cend(), [&other](const custom_param &param) {
               return !other.contain(param.key) || other.getParamValue(param.key) != param.getValue();
           });
}

void UnitParams::saveLastProperty()
{
    m_saved.clear();
    for (const custom_param &param : qAsConst(m_params)) {
        m_saved << param.currentValue;
    }
}

void UnitParams::returnLastParamValue()
{
    const int count = std::min(m_params.size(), m_saved.size());
    for (int i = 0; i < count; ++i) {
        m_params[i].currentValue = m_saved.at(i);
    }
}

void UnitParams::zeroAllPointers()
{
    m_saved.clear();
}

QJsonObject UnitParams::toJson() const
{
    QJsonArray data;
    for (const custom_param &param : m_params) {
        data << QJsonObject{
            {QStringLiteral("description"), param.key},      {QStringLiteral("title"), param.getTitle()},
            {QStringLiteral("min_val"), param.minimum},      {QStringLiteral("max_val"), param.maximum},
            {QStringLiteral("vals_list"), param.choices},    {QStringLiteral("curr_val"), param.getValue()},
            {QStringLiteral("editable"), param.isEditable()}};
    }
    return {{QStringLiteral("name"), m_name}, {QStringLiteral("desc"), m_descriptor}, {QStringLiteral("data"), data}};
}

bool UnitParams::fromJson(const QJsonObject &json)
{
    const QJsonValue name = json[QLatin1String("name")];
    const QJsonValue descriptor = json[QLatin1String("desc")];
    const QJsonValue data = json[QLatin1String("data")];
    if (!data.isArray() || !isTextOrAbsent(name) || !isTextOrAbsent(descriptor)) {
        BPCommon::log(BPCommon::LogAlgorithm, "UnitParams::fromJson %s: this is no parameter set", m_name);
        return false;
    }
    m_name = name.toString(m_name);
    m_descriptor = descriptor.toString(m_descriptor);
    const QJsonArray entries = data.toArray();
    for (const QJsonValue &entry : entries) {
        if (const auto value = valueText(entry[QLatin1String("curr_val")])) {
            setParamValue(entry[QLatin1String("description")].toString(), *value);
        }
    }
    return true;
}

void UnitParams::writeSetting(QXmlStreamWriter &writer) const
{
    writer.writeStartElement(QStringLiteral("prop"));
    for (const custom_param &param : m_params) {
        writer.writeTextElement(param.key, xmlText(param.getValue()));
    }
    writer.writeEndElement();
}

bool UnitParams::readSetting(QXmlStreamReader &reader)
{
    if (!findProperties(reader)) {
        return false;
    }
    QMap<QString, QString> values;
    while (reader.readNextStartElement()) {
        const QString key = reader.name().toString();
        values.insert(key, reader.readElementText(QXmlStreamReader::SkipChildElements));
    }
    if (reader.hasError()) {
        return false;
    }
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        setParamValue(value.key(), value.value());
    }
    return true;
}

bool UnitParams::writeParamToFile(const QString &path) const
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text | QIODevice::Truncate)) {
        BPCommon::log(BPCommon::LogAlgorithm, "UnitParams::writeParamToFile %s: %s", path, file.errorString());
        return false;
    }
    QXmlStreamWriter writer(&file);
    writer.setCodec("UTF-8");
    writer.setAutoFormatting(true);
    writer.writeStartDocument();
    writer.writeStartElement(QStringLiteral("algo"));
    writer.writeTextElement(QStringLiteral("name"), xmlText(m_name));
    writer.writeTextElement(QStringLiteral("depn"), xmlText(m_dependName));
    writer.writeTextElement(QStringLiteral("desc"), xmlText(m_descriptor));
    writeSetting(writer);
    writer.writeEndElement();
    writer.writeEndDocument();
    const bool written = file.flush() && !writer.hasError();
    if (!written) {
        BPCommon::log(BPCommon::LogAlgorithm, "UnitParams::writeParamToFile %s: %s", path, file.errorString());
    }
    return written;
}

bool UnitParams::loadParamFromFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        BPCommon::log(BPCommon::LogAlgorithm, "UnitParams::loadParamFromFile %s: %s", path, file.errorString());
        return false;
    }
    QXmlStreamReader reader(&file);
    UnitParams loaded = *this;
    if (!loaded.readDocument(reader)) {
        BPCommon::log(BPCommon::LogAlgorithm, "UnitParams::loadParamFromFile %s: line %i: %s", path,
                      reader.lineNumber(),
                      reader.hasError() ? reader.errorString() : QStringLiteral("this is no parameter set"));
        return false;
    }
    *this = std::move(loaded);
    return true;
}

bool UnitParams::readDocument(QXmlStreamReader &reader)
{
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("algo")) {
        return false;
    }
    while (reader.readNextStartElement()) {
        if (reader.name() == QLatin1String("name")) {
            m_name = reader.readElementText(QXmlStreamReader::SkipChildElements);
        } else if (reader.name() == QLatin1String("depn")) {
            m_dependName = reader.readElementText(QXmlStreamReader::SkipChildElements);
        } else if (reader.name() == QLatin1String("desc")) {
            m_descriptor = reader.readElementText(QXmlStreamReader::SkipChildElements);
        } else if (reader.name() == QLatin1String("prop")) {
            readSetting(reader);
        } else {
            reader.skipCurrentElement();
        }
    }
    return !reader.hasError();
}
