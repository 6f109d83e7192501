#include "devices/AmplifierChannel.h"

#include "base/TextHelper.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace {

constexpr int kLeastTextPairs = 7;
constexpr std::array<float, 7> kLPFChoices{0.0f, 20.0f, 30.0f, 40.0f, 50.0f, 60.0f, 70.0f};
constexpr std::array<float, 8> kHPFChoices{0.0f, 0.5f, 1.0f, 2.0f, 5.0f, 10.0f, 20.0f, 50.0f};
constexpr std::array<float, 3> kBSFChoices{0.0f, 50.0f, 60.0f};

template <std::size_t N> QList<float> toList(const std::array<float, N> &values)
{
    return QList<float>(values.begin(), values.end());
}

QString numberText(float value)
{
    return QString::number(static_cast<double>(value), 'g', 6);
}

QStringList toTexts(const QList<float> &values)
{
    QStringList texts;
    for (const float value : values) {
        texts << numberText(value);
    }
    return texts;
}

int choiceIndex(const QList<float> &choices, float value)
{
    return std::max(0, choices.indexOf(value));
}

void readFloat(const QJsonObject &json, const char *key, float &value)
{
    const double number = json.value(QLatin1String(key)).toDouble(static_cast<double>(value));
    if (std::fabs(number) <= static_cast<double>(std::numeric_limits<float>::max())) {
        value = static_cast<float>(number);
    }
}

void readGroup(const QJsonObject &json, const char *key, quint32 &value)
{
    const double number = json.value(QLatin1String(key)).toDouble(static_cast<double>(value));
    if (number >= 0.0 && number <= static_cast<double>(std::numeric_limits<quint32>::max())) {
        value = static_cast<quint32>(number);
    }
}

void readFloat(const QString &text, float &value)
{
    const float number = text.toFloat();
    if (std::isfinite(number)) {
        value = number;
    }
}

bool isChannelType(int type)
{
    return type >= BPCommon::EEG && type <= BPCommon::Temp;
}

} // namespace

AmplifierChannel::Filters::Filters()
    : LPFValues(toList(kLPFChoices))
    , HPFValues(toList(kHPFChoices))
    , BSFValues(toList(kBSFChoices))
{
}

AmplifierChannel::Filters::Filters(const Filters &other)
    : LPF(other.LPF)
    , HPF(other.HPF)
    , BSF(other.BSF)
    , sampleFreq(other.sampleFreq)
    , LPFValues(other.LPFValues)
    , HPFValues(other.HPFValues)
    , BSFValues(other.BSFValues)
{
}

AmplifierChannel::Filters &AmplifierChannel::Filters::operator=(const Filters &other)
{
    if (this != &other) {
        LPF = other.LPF;
        HPF = other.HPF;
        BSF = other.BSF;
        sampleFreq = other.sampleFreq;
        LPFValues = other.LPFValues;
        HPFValues = other.HPFValues;
        BSFValues = other.BSFValues;
        objects.clear();
    }
    return *this;
}

AmplifierChannel::Filters::~Filters() = default;

AmplifierChannel::AmplifierChannel() = default;

AmplifierChannel::AmplifierChannel(unsigned int index, float scale, BPCommon::ChannelType type)
    : m_index(static_cast<int>(index))
    , m_type(type)
    , m_scale(scale)
{
}

AmplifierChannel::AmplifierChannel(const AmplifierChannel *other)
{
    if (other != nullptr) {
        *this = *other;
    }
}

AmplifierChannel::AmplifierChannel(const QJsonObject &json)
{
    m_index = json.value(QLatin1String("index")).toInt(m_index);
    m_name = json.value(QLatin1String("name")).toString(m_name);
    const int type = json.value(QLatin1String("type")).toInt(m_type);
    if (isChannelType(type)) {
        m_type = static_cast<BPCommon::ChannelType>(type);
    }
    readFloat(json, "scale", m_scale);
    readGroup(json, "G1", m_groups.group1);
    readGroup(json, "G2", m_groups.group2);
    const QJsonObject filters = json.value(QLatin1String("filters")).toObject();
    readFloat(filters, "LPF", m_filters.LPF);
    readFloat(filters, "HPF", m_filters.HPF);
    readFloat(filters, "BSF", m_filters.BSF);
}

AmplifierChannel::AmplifierChannel(const QString &text)
{
    parseStringData(text);
}

void AmplifierChannel::setTextChannelType(const QString &text)
{
    for (int type = BPCommon::EEG; type <= BPCommon::Temp; ++type) {
        if (text == BPCommon::channelTypeText(static_cast<BPCommon::ChannelType>(type))) {
            m_type = static_cast<BPCommon::ChannelType>(type);
        }
    }
}

void AmplifierChannel::getGroupValue(unsigned int &group1, unsigned int &group2) const
{
    group1 = m_groups.group1;
    group2 = m_groups.group2;
}

QStringList AmplifierChannel::getLPFValues() const
{
    return toTexts(m_filters.LPFValues);
}

QStringList AmplifierChannel::getHPFValues() const
{
    return toTexts(m_filters.HPFValues);
}

QStringList AmplifierChannel::getBSFValues() const
{
    return toTexts(m_filters.BSFValues);
}

int AmplifierChannel::getCurrentIndexLPF() const
{
    return choiceIndex(m_filters.LPFValues, m_filters.LPF);
}

int AmplifierChannel::getCurrentIndexHPF() const
{
    return choiceIndex(m_filters.HPFValues, m_filters.HPF);
}

int AmplifierChannel::getCurrentIndexBSF() const
{
    return choiceIndex(m_filters.BSFValues, m_filters.BSF);
}

QJsonObject AmplifierChannel::toJson() const
{
    const QJsonObject filters{{QStringLiteral("LPF"), static_cast<double>(m_filters.LPF)},
                              {QStringLiteral("HPF"), static_cast<double>(m_filters.HPF)},
                              {QStringLiteral("BSF"), static_cast<double>(m_filters.BSF)}};
    return {{QStringLiteral("index"), m_index},
            {QStringLiteral("name"), m_name},
            {QStringLiteral("type"), static_cast<int>(m_type)},
            {QStringLiteral("scale"), static_cast<double>(m_scale)},
            {QStringLiteral("G1"), static_cast<double>(m_groups.group1)},
            {QStringLiteral("G2"), static_cast<double>(m_groups.group2)},
            {QStringLiteral("filters"), filters}};
}

QByteArray AmplifierChannel::makeTextView() const
{
    const QStringList pairs{QStringLiteral("index=") + QString::number(m_index),
                            QStringLiteral("name=") + m_name,
                            QStringLiteral("type=") + getTextType(),
                            QStringLiteral("g1=") + QString::number(m_groups.group1),
                            QStringLiteral("g2=") + QString::number(m_groups.group2),
                            QStringLiteral("scale=") + numberText(m_scale),
                            QStringLiteral("LPF=") + numberText(m_filters.LPF),
                            QStringLiteral("HPF=") + numberText(m_filters.HPF),
                            QStringLiteral("BSO=") + numberText(m_filters.BSF)}; // not "BSF=": hosts read it so
    return pairs.join(QLatin1Char(';')).toUtf8();
}

void AmplifierChannel::parseStringData(const QString &text)
{
    const QStringList parts = text.split(QLatin1Char(';'), TextHelper::SkipEmptyParts);
    if (parts.size() < kLeastTextPairs) {
        return;
    }
    for (int position = 0; position < parts.size(); ++position) {
        const QStringList pieces = parts[position].split(QLatin1Char('='), TextHelper::SkipEmptyParts);
        if (pieces.size() > 1) {
            storeValue(position, pieces[1]);
        }
    }
}

bool AmplifierChannel::isTextForm(const QString &text)
{
    return text.split(QLatin1Char(';'), TextHelper::SkipEmptyParts).size() >= kLeastTextPairs;
}

void AmplifierChannel::storeValue(int position, const QString &value)
{
    switch (position) {
    case 0:
        m_index = value.toInt();
        break;
    case 1:
        m_name = value;
        break;
    case 2:
        setTextChannelType(value);
        break;
    case 3:
        m_groups.group1 = value.toUInt();
        break;
    case 4:
        m_groups.group2 = value.toUInt();
        break;
    case 5:
        readFloat(value, m_scale);
        break;
    case 6:
        readFloat(value, m_filters.LPF);
        break;
    case 7:
        readFloat(value, m_filters.HPF);
        break;
    case 8:
        readFloat(value, m_filters.BSF);
        break;
    default:
        break;
    }
}

QString AmplifierChannel::getTextFilterView() const
{
    return QStringLiteral("LP:%1 HP:%2 BS:%3")
        .arg(numberText(m_filters.LPF), numberText(m_filters.HPF), numberText(m_filters.BSF));
}
