#include "montage/BipolarMontage.h"

#include "devices/AmplifierChannel.h"

#include <algorithm>

namespace {

const QString kLeftName = QStringLiteral("A1");
const QString kRightName = QStringLiteral("A2");

constexpr quint32 kUnreferenced = 0;
constexpr quint32 kLeftSide = 1;
constexpr quint32 kRightSide = 2;
constexpr quint32 kBothSides = 3;

QString nameOf(const Referent &referent)
{
    return referent.channel != nullptr ? referent.channel->getName() : QString();
}

/// The side of an electrode by the number in its name.
///
/// The number is the first run of characters up to '9', so that signs such as '-' belong to it: "T3-T5" reads "3-",
/// which is no number and counts as 0, to the right (kept: montages in the field depend on it).
quint32 sideOf(const QString &name)
{
    const auto isUpToNine = [](QChar c) { return c <= QLatin1Char('9'); };
    const auto first = std::find_if(name.cbegin(), name.cend(), isUpToNine);
    if (first == name.cend()) {
        return kBothSides;
    }
    const auto last = std::find_if_not(first, name.cend(), isUpToNine);
    const int number = name.mid(static_cast<int>(first - name.cbegin()), static_cast<int>(last - first)).toInt();
    return number % 2 != 0 ? kLeftSide : kRightSide;
}

} // namespace

BipolarMontage::BipolarMontage(const Montage &other)
    : Montage(other)
{
    parseChannelNames();
}

BipolarMontage::BipolarMontage(const QSharedPointer<Montage> &other)
{
    if (!other.isNull()) {
        Montage::operator=(*other);
    }
    parseChannelNames();
}

BipolarMontage::BipolarMontage(const QJsonObject &json)
    : Montage(json)
{
    parseChannelNames();
    setReferentsFrom(json);
}

BipolarMontage::BipolarMontage(const BipolarMontage *other)
{
    if (other != nullptr) {
        *this = *other;
    }
}

BipolarMontage::BipolarMontage(const BipolarMontage &other)
    : Montage(other)
    , m_left(sameReferent(other.m_left))
    , m_right(sameReferent(other.m_right))
{
}

BipolarMontage &BipolarMontage::operator=(const BipolarMontage &other)
{
    if (this != &other) {
        Montage::operator=(other);
        m_left = sameReferent(other.m_left);
        m_right = sameReferent(other.m_right);
    }
    return *this;
}

QJsonObject BipolarMontage::toJson() const
{
    QJsonObject json = Montage::toJson();
    json.insert(QStringLiteral("Montage_Bipolar"), QStringLiteral("true"));
    json.insert(QStringLiteral("left"), nameOf(m_left));
    json.insert(QStringLiteral("right"), nameOf(m_right));
    return json;
}

void BipolarMontage::fromJson(const QJsonObject &json)
{
    Montage::fromJson(json);
    setReferentsFrom(json);
}

Montage_Type BipolarMontage::getType() const
{
    return Montage_Bipolar;
}

void BipolarMontage::setLeftReferent(const QString &name)
{
    setReferent(m_left, name);
}

void BipolarMontage::setRightReferent(const QString &name)
{
    setReferent(m_right, name);
}

void BipolarMontage::channelsChanged()
{
    followChannel(m_left);
    followChannel(m_right);
}

void BipolarMontage::parseChannelNames()
{
    int number = 0;
    for (AmplifierChannel *channel : channels()) {
        ++number;
        if (m_left.channel == nullptr && channel->getName() == kLeftName) {
            m_left = {number, channel};
            channel->setGroup2(kUnreferenced);
        } else if (m_right.channel == nullptr && channel->getName() == kRightName) {
            m_right = {number, channel};
            channel->setGroup2(kUnreferenced);
        } else {
            channel->setGroup2(sideOf(channel->getName()));
        }
    }
}

void BipolarMontage::setReferentsFrom(const QJsonObject &json)
{
    const QJsonValue left = json.value(QLatin1String("left"));
    if (left.isString()) {
        setLeftReferent(left.toString());
    }
    const QJsonValue right = json.value(QLatin1String("right"));
    if (right.isString()) {
        setRightReferent(right.toString());
    }
}

void BipolarMontage::setReferent(Referent &referent, const QString &name)
{
    referent.reset();
    const int position = name.isEmpty() ? -1 : getIndexByName(name);
    if (position >= 0) {
        referent = {position + 1, channels()[static_cast<std::size_t>(position)]};
        referent.channel->setGroup2(kUnreferenced);
    }
}

void BipolarMontage::followChannel(Referent &referent) const
{
    const auto found = std::find(channels().cbegin(), channels().cend(), referent.channel);
    if (found == channels().cend()) {
        referent.reset();
    } else {
        referent.number = static_cast<int>(found - channels().cbegin()) + 1;
    }
}

/// The referent at the same place of another montage's list.
Referent BipolarMontage::sameReferent(const Referent &other) const
{
    const auto position = static_cast<std::size_t>(other.number - 1);
    return other.channel != nullptr && position < channels().size() ? Referent{other.number, channels()[position]}
                                                                    : Referent();
}
