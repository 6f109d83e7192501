#include "montage/XMLChannel.h"

#include "devices/AmplifierChannel.h"
#include "montage/Montage.h"

#include <QXmlStreamWriter>

namespace {

const QString kChannelElement = QStringLiteral("Channel");

QString numberText(float value)
{
    return QString::number(static_cast<double>(value), 'g', 6);
}

bool isXmlCharacter(QChar c)
{
    return c >= QLatin1Char(' ') ? c.unicode() < 0xfffe
                                 : c == QLatin1Char('\t') || c == QLatin1Char('\n') || c == QLatin1Char('\r');
}

} // namespace

XMLChannel::XMLChannel()
    : m_keys{QStringLiteral("index"), QStringLiteral("name"), QStringLiteral("type"),
             QStringLiteral("g1"),    QStringLiteral("g2"),   QStringLiteral("scale"),
             QStringLiteral("LPF"),   QStringLiteral("HPF"),  QStringLiteral("BSF")}
{
}

QString XMLChannel::readFile(QFile &file)
{
    m_error.clear();
    if (!file.isOpen() && !file.open(QIODevice::ReadOnly)) {
        m_error = file.errorString();
        return QString();
    }
    file.seek(0);
    m_reader.setDevice(&file);
    m_names.clear();
    QString lines;
    unsigned count = 0;
    while (!m_reader.atEnd()) {
        m_reader.readNext();
        if (!m_reader.isStartElement() || m_reader.name() != kChannelElement) {
            continue;
        }
        if (++count > Montage::kMaxChannels) {
            m_reader.raiseError(QStringLiteral("more than %1 channels").arg(Montage::kMaxChannels));
        } else {
            readChannel(lines);
        }
    }
    if (m_reader.hasError()) {
        m_error = QStringLiteral("line %1: %2").arg(m_reader.lineNumber()).arg(m_reader.errorString());
        lines.clear();
    }
    m_reader.setDevice(nullptr);
    return lines;
}

void XMLChannel::readChannel(QString &lines)
{
    QStringList pairs;
    QString name; // where the text form has it, in the second pair
    for (const QString &key : qAsConst(m_keys)) {
        doubleNext();
        if (!m_reader.isStartElement()) {
            break;
        }
        if (m_reader.name() != key) {
            m_reader.skipCurrentElement();
            continue;
        }
        const QString value = m_reader.readElementText(QXmlStreamReader::SkipChildElements);
        if (pairs.size() == 1 && key == QLatin1String("name")) {
            name = value;
        }
        pairs << key + QLatin1Char('=') + plainValue(value);
    }
    const QString line = pairs.join(QLatin1Char(';'));
    if (plainValue(name) != name && AmplifierChannel::isTextForm(line)) {
        m_names.insert(lines.count(QLatin1Char('\n')), name);
    }
    lines += line + QLatin1Char('\n');
}

void XMLChannel::restoreNames(const std::vector<AmplifierChannel *> &channels) const
{
    for (auto name = m_names.cbegin(); name != m_names.cend(); ++name) {
        if (name.key() < static_cast<int>(channels.size())) {
            channels[static_cast<std::size_t>(name.key())]->setChannelName(name.value());
        }
    }
}

bool XMLChannel::writeFile(QFile &file, const std::vector<AmplifierChannel *> &channels) const
{
    if (channels.size() > Montage::kMaxChannels) {
        return false; // readFile() would not take them
    }
    QXmlStreamWriter writer(&file);
    writer.setAutoFormatting(true);
    for (const AmplifierChannel *channel : channels) {
        writeChannel(writer, *channel);
    }
    return !writer.hasError();
}

void XMLChannel::writeChannel(QXmlStreamWriter &writer, const AmplifierChannel &channel) const
{
    const QStringList values{
        QString::number(channel.getIndex()),  xmlText(channel.getName()),           channel.getTextType(),
        QString::number(channel.getGroup1()), QString::number(channel.getGroup2()), numberText(channel.getScale()),
        numberText(channel.getLPF()),         numberText(channel.getHPF()),         numberText(channel.getBSF())};
    writer.writeStartElement(kChannelElement);
    for (int i = 0; i < m_keys.size(); ++i) {
        writer.writeTextElement(m_keys[i], values[i]);
    }
    writer.writeEndElement();
}

QString XMLChannel::xmlText(QString text)
{
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        const bool isPair = c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate();
        if (isPair) {
            ++i;
        } else if (c.isSurrogate() || !isXmlCharacter(c)) {
            text[i] = QLatin1Char('_');
        }
    }
    return text;
}

/// Advances over an element's end and the whitespace behind it: to the next child, or to the end of the channel.
void XMLChannel::doubleNext()
{
    do {
        m_reader.readNext();
    } while (!m_reader.atEnd() && !m_reader.isStartElement() && !m_reader.isEndElement());
}

/// The value as the text form can carry it, in which ";", "=" and line breaks separate.
QString XMLChannel::plainValue(QString value)
{
    for (QChar &c : value) {
        if (c == QLatin1Char(';') || c == QLatin1Char('=') || c == QLatin1Char('\n') || c == QLatin1Char('\r')) {
            c = QLatin1Char('_');
        }
    }
    return value;
}
