#include "montage/MontageXmlReader.h"

#include "common/BPCommon.h"
#include "common/SaveFile.h"
#include "devices/AmplifierChannel.h"
#include "montage/AverageMontage.h"
#include "montage/BipolarMontage.h"
#include "montage/Montage.h"
#include "montage/XMLChannel.h"

#include <QBuffer>
#include <QFileInfo>

namespace {

const QString kRootElement = QStringLiteral("Montage");
const QString kChannelElement = QStringLiteral("Channel");
const QString kUsualText = QStringLiteral("Montage_Usual");
const QString kBipolarText = QStringLiteral("Montage_Bipolar");
const QString kAverageText = QStringLiteral("Montage_Average");

QString typeText(Montage_Type type)
{
    switch (type) {
    case Montage_Bipolar:
        return kBipolarText;
    case Montage_Average:
        return kAverageText;
    case Montage_Usual:
        break;
    }
    return kUsualText;
}

QString referentName(const Referent &referent)
{
    return referent.channel != nullptr ? XMLChannel::xmlText(referent.channel->getName()) : QString();
}

} // namespace

MontageXmlReader::MontageXmlReader() = default;
MontageXmlReader::~MontageXmlReader() = default;

bool MontageXmlReader::writeMontageToFile(const QString &path, const QSharedPointer<Montage> &montage)
{
    m_error.clear();
    if (montage.isNull()) {
        setError("writeMontageToFile", path, QStringLiteral("there is no montage to write"));
        return false;
    }
    if (montage->size() > Montage::kMaxChannels) {
        setError("writeMontageToFile", path,
                 QStringLiteral("a montage file holds at most %1 channels, this montage has %2")
                     .arg(Montage::kMaxChannels)
                     .arg(montage->size()));
        return false;
    }
    QBuffer content;
    content.open(QIODevice::WriteOnly);
    m_montage = montage;
    m_writer.setDevice(&content);
    writeFile();
    m_writer.setDevice(nullptr);
    m_montage.reset();
    if (content.size() > kMaxFileSize) {
        setError("writeMontageToFile", path,
                 QStringLiteral("the montage is too large, give its channels shorter names"));
        return false;
    }
    const QString fault = bp::saveFile(path, content.data(), bp::SaveFallback::WriteInPlace);
    if (!fault.isEmpty()) {
        setError("writeMontageToFile", path, fault);
    }
    return m_error.isEmpty();
}

QSharedPointer<Montage> MontageXmlReader::readMontage(const QString &path)
{
    m_error.clear();
    QString lines;
    if (openFile(path) && readFile()) {
        lines = readChannel();
    }
    m_reader.setDevice(nullptr);
    m_file.close();
    if (!m_error.isEmpty()) {
        return {};
    }
    QSharedPointer<Montage> montage = makeMontage(lines);
    montage->setMontageName(m_montageName);
    montage->setMontageFileName(QFileInfo(path).fileName());
    return montage;
}

bool MontageXmlReader::openFile(const QString &path)
{
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly)) {
        setError("readMontage", path, m_file.errorString());
        return false;
    }
    if (m_file.size() > kMaxFileSize) {
        setError("readMontage", path, QStringLiteral("the file is too large for a montage"));
        return false;
    }
    return true;
}

bool MontageXmlReader::readFile()
{
    m_typeText.clear();
    m_leftName.clear();
    m_rightName.clear();
    m_montageName.clear();
    m_reader.setDevice(&m_file);
    doubleNext();
    if (!m_reader.hasError() && m_reader.name() != kRootElement) {
        m_reader.raiseError(QStringLiteral("the root element is not \"Montage\""));
    }
    while (!m_reader.atEnd() && !(m_reader.isStartElement() && m_reader.name() == kChannelElement)) {
        doubleNext();
        readHeaderText();
    }
    if (m_reader.hasError()) {
        setError("readMontage", m_file.fileName(),
                 QStringLiteral("line %1: %2").arg(m_reader.lineNumber()).arg(m_reader.errorString()));
        return false;
    }
    return true;
}

QString MontageXmlReader::readChannel()
{
    QString lines = m_channels.readFile(m_file);
    if (!m_channels.errorText().isEmpty()) {
        setError("readMontage", m_file.fileName(), m_channels.errorText());
    }
    return lines;
}

void MontageXmlReader::doubleNext()
{
    do {
        m_reader.readNext();
    } while (!m_reader.atEnd() && !m_reader.isStartElement() && !m_reader.isEndElement());
}

void MontageXmlReader::readHeaderText()
{
    if (!m_reader.isStartElement()) {
        return;
    }
    const struct
    {
        const char *key;
        QString *text;
    } headers[] = {{"type", &m_typeText}, {"left", &m_leftName}, {"right", &m_rightName}, {"name", &m_montageName}};
    for (const auto &header : headers) {
        if (m_reader.name() == QLatin1String(header.key)) {
            *header.text = m_reader.readElementText(QXmlStreamReader::SkipChildElements);
            return;
        }
    }
}

QSharedPointer<Montage> MontageXmlReader::makeMontage(const QString &lines) const
{
    auto usual = QSharedPointer<Montage>::create(lines);
    AmplifierChannel *const *channels = usual->getData();
    m_channels.restoreNames({channels, channels + usual->size()});
    if (m_typeText == kBipolarText) {
        auto bipolar = QSharedPointer<BipolarMontage>::create(*usual);
        bipolar->setLeftReferent(m_leftName);
        bipolar->setRightReferent(m_rightName);
        return bipolar;
    }
    if (m_typeText == kAverageText) {
        return QSharedPointer<AverageMontage>::create(*usual);
    }
    return usual;
}

void MontageXmlReader::writeFile()
{
    m_writer.setAutoFormatting(true);
    m_writer.writeStartDocument();
    m_writer.writeStartElement(kRootElement);
    m_writer.writeTextElement(QStringLiteral("type"), typeText(m_montage->getType()));
    if (const auto *bipolar = dynamic_cast<const BipolarMontage *>(m_montage.data())) {
        m_writer.writeTextElement(QStringLiteral("left"), referentName(bipolar->getLeftReferent()));
        m_writer.writeTextElement(QStringLiteral("right"), referentName(bipolar->getRightReferent()));
    }
    m_writer.writeTextElement(QStringLiteral("name"), XMLChannel::xmlText(m_montage->getMontageName()));
    const XMLChannel channels;
    const unsigned size = m_montage->size();
    AmplifierChannel *const *data = m_montage->getData();
    for (unsigned i = 0; i < size; ++i) {
        channels.writeChannel(m_writer, *data[i]);
    }
    m_writer.writeEndElement();
    m_writer.writeEndDocument();
}

void MontageXmlReader::setError(const char *operation, const QString &path, const QString &reason)
{
    m_error = QStringLiteral("%1: %2.").arg(path, reason);
    BPCommon::log(BPCommon::LogMontage, "MontageXmlReader::%s %s", operation, m_error);
}
