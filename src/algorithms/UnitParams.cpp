#include "algorithms/UnitParams.h"

#include "common/BPCommon.h"
#include "common/SaveFile.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>
#include <cmath>
#include <optional>

namespace {

/// XML has no way to write control characters and halves of surrogate pairs; one of them would make the whole document
/// unreadable.
QString xmlText(QString text)
{
    for (int i = 0; i < text.size(); ++i) {
        const ushort code = text.at(i).unicode();
        if (text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            ++i;
        } else if (text.at(i).isSurrogate()) {
            text[i] = QChar::ReplacementCharacter;
        } else if ((code < 0x20 && code != '\t' && code != '\n' && code != '\r') || code >= 0xFFFE) {
            text[i] = QLatin1Char(' ');
        }
    }
    return text;
}

/// Whether a key can be the name of an element.
bool isElementName(const QString &key)
{
    const auto isStart = [](QChar c) { return c.isLetter() || c == QLatin1Char('_'); };
    const auto isPart = [&](QChar c) {
        return isStart(c) || c.isDigit() || c == QLatin1Char('-') || c == QLatin1Char('.');
    };
    return !key.isEmpty() && isStart(key[0]) && std::all_of(key.cbegin(), key.cend(), isPart);
}

/// A whole number, or one with a fraction; nothing for a text that is none.
std::optional<double> numberOf(const QString &text, bool isWhole)
{
    bool isNumber = false;
    const double number = text.toDouble(&isNumber);
    const bool fits = isNumber && std::isfinite(number) && (!isWhole || number == std::floor(number));
    return fits ? std::optional<double>(number) : std::nullopt;
}

/// " (0: first, 1: second)"; empty without choices.
QString numbered(const QStringList &choices)
{
    QStringList texts;
    for (const QString &choice : choices) {
        texts << QStringLiteral("%1: %2").arg(texts.size()).arg(choice);
    }
    return texts.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(texts.join(QStringLiteral(", ")));
}

/// What a value has to be, as the end of a sentence; empty when it is just that.
QString requirement(const custom_param &param, const QString &value)
{
    const bool isWhole = param.valueType == custom_param::ValueInteger;
    if (param.valueType == custom_param::ValueText) {
        return QString();
    }
    const std::optional<double> number = numberOf(value, isWhole);
    if (param.controlType == custom_param::ControlCheckBox) {
        return number == 0.0 || number == 1.0 ? QString() : QStringLiteral("0 or 1");
    }
    const QStringList choices = param.choices.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    const bool isChoice = param.controlType == custom_param::ControlChoice && !choices.isEmpty();
    const QString maximum = isChoice ? QString::number(choices.size() - 1) : param.maximum;
    const QString minimum = isChoice ? QStringLiteral("0") : param.minimum;
    const bool isInside = number && *number >= numberOf(minimum, false).value_or(*number)
        && *number <= numberOf(maximum, false).value_or(*number);
    if (isInside) {
        return QString();
    }
    const QString kind = isWhole ? QStringLiteral("a whole number") : QStringLiteral("a number");
    if (minimum.isEmpty() && maximum.isEmpty()) {
        return kind;
    }
    return maximum.isEmpty() ? QStringLiteral("%1 from %2 on").arg(kind, minimum)
        : minimum.isEmpty()
        ? QStringLiteral("%1 up to %2").arg(kind, maximum)
        : QStringLiteral("%1 from %2 to %3%4").arg(kind, minimum, maximum, isChoice ? numbered(choices) : QString());
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

QString UnitParams::problemOf(const QString &key, const QString &value) const
{
    const int index = indexOf(key);
    if (index < 0) {
        return QStringLiteral("There is no parameter \"%1\", only %2.")
            .arg(key, getParamNames().join(QStringLiteral(", ")));
    }
    const custom_param &param = m_params.at(index);
    if (value.isEmpty() || value == param.getValue()) {
        return QString(); // some rhythms of the library's own lie outside the limits of their set
    }
    if (param.group == custom_param::GroupInformation) {
        return QStringLiteral("\"%1\" is what the device says; it cannot be set.").arg(key);
    }
    const QString needed = requirement(param, value);
    return needed.isEmpty() ? QString() : QStringLiteral("\"%1\" has to be %2, not \"%3\".").arg(key, needed, value);
}

QString UnitParams::problemOf(const QJsonObject &json) const
{
    const QJsonArray entries = json[QLatin1String("data")].toArray();
    for (const QJsonValue &entry : entries) {
        const QString key = entry[QLatin1String("description")].toString();
        const QJsonValue given = entry[QLatin1String("curr_val")];
        const auto value = valueText(given);
        const QString problem = value || given.isUndefined() || !contain(key)
            ? problemOf(key, value.value_or(QString()))
            : QStringLiteral("The value of \"%1\" has to be a text or a number.").arg(key);
        if (!problem.isEmpty()) {
            return problem;
        }
    }
    return QString();
}

QString UnitParams::problemOfFile(const QString &path) const
{
    UnitParams loaded = *this;
    QMap<QString, QString> values;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return QStringLiteral("Cannot read %1: %2.").arg(path, file.errorString());
    }
    QXmlStreamReader reader(&file);
    if (!loaded.readDocument(reader, values)) {
        return QStringLiteral("%1 holds no parameter set.").arg(path);
    }
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        const QString problem = problemOf(value.key(), value.value());
        if (!problem.isEmpty()) {
            return problem;
        }
    }
    return QString();
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
    if (!(data.isArray() || data.isUndefined()) || !isTextOrAbsent(name) || !isTextOrAbsent(descriptor)) {
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
        if (isElementName(param.key)) {
            writer.writeTextElement(param.key, xmlText(param.getValue()));
        } else {
            BPCommon::log(BPCommon::LogAlgorithm, "UnitParams::writeSetting \"%s\" is no XML name and is not saved",
                          param.key);
        }
    }
    writer.writeEndElement();
}

bool UnitParams::readSetting(QXmlStreamReader &reader)
{
    QMap<QString, QString> values;
    if (!readValues(reader, values)) {
        return false;
    }
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        setParamValue(value.key(), value.value());
    }
    return true;
}

bool UnitParams::readValues(QXmlStreamReader &reader, QMap<QString, QString> &values)
{
    if (!findProperties(reader)) {
        return false;
    }
    while (reader.readNextStartElement()) {
        const QString key = reader.name().toString();
        values.insert(key, reader.readElementText(QXmlStreamReader::SkipChildElements));
    }
    return !reader.hasError();
}

bool UnitParams::writeParamToFile(const QString &path) const
{
    QByteArray document;
    QXmlStreamWriter writer(&document);
    writer.setAutoFormatting(true);
    writer.writeStartDocument();
    writer.writeStartElement(QStringLiteral("algo"));
    writer.writeTextElement(QStringLiteral("name"), xmlText(m_name));
    writer.writeTextElement(QStringLiteral("depn"), xmlText(m_dependName));
    writer.writeTextElement(QStringLiteral("desc"), xmlText(m_descriptor));
    writeSetting(writer);
    writer.writeEndElement();
    writer.writeEndDocument();
    const QString fault = writer.hasError() ? QStringLiteral("a text that XML cannot hold")
                                            : bp::saveFile(path, document, bp::SaveFallback::WriteInPlace);
    if (!fault.isEmpty()) {
        BPCommon::log(BPCommon::LogAlgorithm, "UnitParams::writeParamToFile %s: %s", path, fault);
    }
    return fault.isEmpty();
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
    QMap<QString, QString> values;
    if (!loaded.readDocument(reader, values)) {
        BPCommon::log(BPCommon::LogAlgorithm, "UnitParams::loadParamFromFile %s: line %i: %s", path,
                      reader.lineNumber(),
                      reader.hasError() ? reader.errorString() : QStringLiteral("this is no parameter set"));
        return false;
    }
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        loaded.setParamValue(value.key(), value.value());
    }
    *this = std::move(loaded);
    return true;
}

bool UnitParams::readDocument(QXmlStreamReader &reader, QMap<QString, QString> &values)
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
            readValues(reader, values);
        } else {
            reader.skipCurrentElement();
        }
    }
    return !reader.hasError();
}
