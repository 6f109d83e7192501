#include "montage/Montage.h"

#include "devices/AmplifierChannel.h"
#include "filters/ButterworthFilter.h"
#include "filters/NotchFilter.h"
#include "montage/XMLChannel.h"

#include <QFile>
#include <QJsonArray>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr int kFilterOrder = 4;
constexpr float kNotchWidthHz = 1.0f;

/// One of the three filters that a channel may have.
struct Setting
{
    const char *name;
    AbstractFilter::FilterTypeEnum type;
    float AmplifierChannel::Filters::*frequency; ///< Hz, 0 is off
};

constexpr Setting kSettings[] = {{"low-pass", AbstractFilter::LowPass, &AmplifierChannel::Filters::LPF},
                                 {"high-pass", AbstractFilter::HighPass, &AmplifierChannel::Filters::HPF},
                                 {"notch", AbstractFilter::BandStop, &AmplifierChannel::Filters::BSF}};

bool isPossible(float frequency, float rate)
{
    return frequency > 0.0f && std::isfinite(rate) && frequency < rate / 2.0f;
}

/// Null when the filter is off or cannot be built.
std::shared_ptr<AbstractFilter> makeFilter(const Setting &setting, float frequency, float rate)
{
    if (!isPossible(frequency, rate)) {
        return nullptr;
    }
    if (setting.type == AbstractFilter::BandStop) {
        return std::make_shared<NotchFilter>(setting.type, rate, frequency, kNotchWidthHz);
    }
    return ButterworthFilter::makeStable(setting.type, kFilterOrder, rate, frequency);
}

/// What a user should know of a filter that is not built as usual; empty when there is nothing.
QString noteOn(const AmplifierChannel &channel, const Setting &setting)
{
    const float frequency = channel.getFilterRef().*setting.frequency;
    const float rate = channel.getFilterRef().sampleFreq;
    const bool possible = isPossible(frequency, rate);
    if (frequency == 0.0f
        || (possible
            && (setting.type == AbstractFilter::BandStop
                || ButterworthFilter::isStable(setting.type, kFilterOrder, rate, frequency)))) {
        return QString();
    }
    const QString text = possible
        ? QStringLiteral(
            "%1: the %2 of %3 Hz has the textbook's design, because the usual one is unstable at a rate of "
            "%4 Hz.")
        : QStringLiteral("%1: the %2 of %3 Hz is left out, because it has to lie between 0 and half of the rate of "
                         "%4 Hz.");
    return text.arg(channel.getName(), QString::fromLatin1(setting.name),
                    QString::number(static_cast<double>(frequency)), QString::number(static_cast<double>(rate)));
}

void buildFilters(AmplifierChannel &channel)
{
    AmplifierChannel::Filters &filters = channel.getFilterRef();
    bp::FilterList::Filters built;
    for (const Setting &setting : kSettings) {
        if (auto filter = makeFilter(setting, filters.*setting.frequency, filters.sampleFreq)) {
            built.push_back(std::move(filter));
        }
    }
    filters.objects.assign(std::move(built)); // in one step: a reader may run it from now on
}

QStringList notesOn(const AmplifierChannel &channel)
{
    QStringList notes;
    for (const Setting &setting : kSettings) {
        const QString note = noteOn(channel, setting);
        if (!note.isEmpty()) {
            notes << note;
        }
    }
    return notes;
}

int boundedCount(int count)
{
    constexpr int kMost = static_cast<int>(Montage::kMaxChannels);
    if (count > kMost) {
        BPCommon::log(BPCommon::LogMontage, "Montage::Montage only %i of %i channels are taken", kMost, count);
    }
    return std::min(count, kMost);
}

std::vector<AmplifierChannel *> channelsFromText(const QString &lines)
{
    // An empty line is a channel without a usable text, unless it is what stands behind the last line break.
    const QStringList list = lines.split(QLatin1Char('\n'));
    const int count = boundedCount(list.constLast().isEmpty() ? list.size() - 1 : list.size());
    std::vector<AmplifierChannel *> channels;
    channels.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        channels.push_back(new AmplifierChannel(list[i]));
    }
    return channels;
}

std::vector<AmplifierChannel *> channelsFromJson(const QJsonArray &list)
{
    const int count = boundedCount(list.size());
    std::vector<AmplifierChannel *> channels;
    channels.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        channels.push_back(new AmplifierChannel(list[i].toObject()));
    }
    return channels;
}

} // namespace

Montage::Montage() = default;

Montage::Montage(const Montage &other)
    : m_fileName(other.m_fileName)
    , m_name(other.m_name)
    , m_referencesByInput(other.m_referencesByInput)
    , m_sampleFreq(other.getCurrentSampleFreq())
{
    other.copyChannels(m_channels);
}

Montage::Montage(Montage &&other) noexcept
    : m_fileName(std::exchange(other.m_fileName, QString()))
    , m_name(std::exchange(other.m_name, QString()))
    , m_channels(std::exchange(other.m_channels, {}))
    , m_referencesByInput(other.m_referencesByInput)
    , m_sampleFreq(other.getCurrentSampleFreq())
{
    other.channelsChanged();
}

Montage::Montage(const QList<AmplifierChannel *> &channels)
{
    for (AmplifierChannel *channel : channels) {
        if (isNewChannel(channel)) {
            m_channels.push_back(channel);
        }
    }
}

Montage::Montage(const QJsonObject &json)
    : m_channels(channelsFromJson(json.value(QLatin1String("chan_list")).toArray()))
{
    readNames(json);
}

Montage::Montage(const QString &text)
{
    if (text.contains(QLatin1Char('\n')) || (AmplifierChannel::isTextForm(text) && !QFile::exists(text))) {
        m_channels = channelsFromText(text);
    } else if (!text.isEmpty()) {
        makeNewListFromFile(text);
    }
}

Montage &Montage::operator=(const Montage &other)
{
    if (this != &other) {
        m_fileName = other.m_fileName;
        m_name = other.m_name;
        m_referencesByInput = other.m_referencesByInput;
        m_sampleFreq = other.getCurrentSampleFreq();
        std::vector<AmplifierChannel *> copies;
        other.copyChannels(copies);
        takeChannels(std::move(copies));
    }
    return *this;
}

Montage &Montage::operator=(const Montage *other)
{
    return other != nullptr ? *this = *other : *this;
}

Montage::~Montage()
{
    qDeleteAll(m_channels);
}

QJsonObject Montage::toJson() const
{
    QJsonArray list;
    for (const AmplifierChannel *channel : m_channels) {
        list << channel->toJson();
    }
    return {{QStringLiteral("name"), m_name},
            {QStringLiteral("file_name"), m_fileName},
            {QStringLiteral("chan_list"), list}};
}

void Montage::fromJson(const QJsonObject &json)
{
    readNames(json);
    const QJsonValue list = json.value(QLatin1String("chan_list"));
    if (list.isArray()) {
        takeChannels(channelsFromJson(list.toArray()));
    }
}

Montage_Type Montage::getType() const
{
    return Montage_Usual;
}

unsigned Montage::size() const
{
    BPCommon::log(m_logLevel, "Montage::size");
    return static_cast<unsigned>(m_channels.size());
}

bool Montage::empty() const
{
    BPCommon::log(m_logLevel, "Montage::empty");
    return m_channels.empty();
}

AmplifierChannel *Montage::operator[](unsigned index) const
{
    BPCommon::log(m_logLevel, "Montage::operator[] %u", index);
    return isInside("operator[]", index) ? m_channels[index] : nullptr;
}

bool Montage::push_back(AmplifierChannel *channel)
{
    BPCommon::log(m_logLevel, "Montage::push_back");
    if (!isNewChannel(channel)) {
        return false;
    }
    m_channels.push_back(channel);
    channelsChanged();
    return true;
}

bool Montage::insert(int index, AmplifierChannel *channel)
{
    BPCommon::log(m_logLevel, "Montage::insert %i", index);
    const bool isEnd = index == static_cast<int>(m_channels.size());
    if ((!isEnd && !isInside("insert", index)) || !isNewChannel(channel)) {
        return false;
    }
    m_channels.insert(m_channels.begin() + index, channel);
    channelsChanged();
    return true;
}

AmplifierChannel *Montage::erase(int index)
{
    BPCommon::log(m_logLevel, "Montage::erase %i", index);
    if (!isInside("erase", index)) {
        return nullptr;
    }
    AmplifierChannel *channel = m_channels[static_cast<std::size_t>(index)];
    m_channels.erase(m_channels.begin() + index);
    channelsChanged();
    return channel;
}

void Montage::removeChannel(unsigned index)
{
    BPCommon::log(m_logLevel, "Montage::removeChannel %i", index);
    if (isInside("removeChannel", index)) {
        const AmplifierChannel *channel = m_channels[index];
        m_channels.erase(m_channels.begin() + static_cast<std::ptrdiff_t>(index));
        channelsChanged();
        delete channel;
    }
}

void Montage::resize(unsigned size)
{
    BPCommon::log(m_logLevel, "Montage::resize %i", size);
    if (size > kMaxChannels) {
        BPCommon::log(m_logLevel, "Montage::resize a montage has %u channels at most", kMaxChannels);
        return;
    }
    const std::vector<AmplifierChannel *> surplus(
        m_channels.begin() + std::min<std::ptrdiff_t>(size, m_channels.size()), m_channels.end());
    m_channels.resize(m_channels.size() - surplus.size());
    while (m_channels.size() < size) {
        m_channels.push_back(new AmplifierChannel);
        m_channels.back()->getFilterRef().sampleFreq = m_sampleFreq;
    }
    channelsChanged();
    qDeleteAll(surplus);
}

void Montage::clearChannel()
{
    BPCommon::log(m_logLevel, "Montage::clearChannel");
    takeChannels({});
}

void Montage::rebuildMontageChannelList()
{
    BPCommon::log(m_logLevel, "Montage::rebuildMontageChannelList");
    int index = 0;
    for (AmplifierChannel *channel : m_channels) {
        channel->setIndex(index++);
    }
}

AmplifierChannel *const *Montage::getData() const
{
    BPCommon::log(m_logLevel, "Montage::getData");
    return m_channels.data();
}

QStringList Montage::getChannelNames() const
{
    QStringList names;
    for (const AmplifierChannel *channel : m_channels) {
        names << channel->getName();
    }
    return names;
}

int Montage::getIndexByName(const QString &name) const
{
    const auto found = std::find_if(m_channels.cbegin(), m_channels.cend(),
                                    [&name](const AmplifierChannel *channel) { return *channel == name; });
    return found != m_channels.cend() ? static_cast<int>(found - m_channels.cbegin()) : -1;
}

QSet<int> Montage::getECGChannel() const
{
    QSet<int> positions;
    int position = 0;
    for (const AmplifierChannel *channel : m_channels) {
        if (channel->getChannelType() == BPCommon::ECG) {
            positions << position;
        }
        ++position;
    }
    return positions;
}

void Montage::makeChannelDataList(std::vector<ChannelData> &channels) const
{
    channels.clear();
    for (const AmplifierChannel *channel : m_channels) {
        channels.push_back({static_cast<int>(channels.size()), channel->getName(), channel->getChannelType()});
    }
}

void Montage::copyChannels(std::vector<AmplifierChannel *> &channels) const
{
    channels.clear();
    for (const AmplifierChannel *channel : m_channels) {
        channels.push_back(new AmplifierChannel(*channel));
    }
}

void Montage::setCurrentSampleFreq(float frequency)
{
    // The conversion is the one that readers of the trace know; the rate is written as a real number all the same.
    BPCommon::log(m_logLevel, "Montage::setCurrentSampleFreq %d", frequency);
    m_sampleFreq = frequency;
    for (AmplifierChannel *channel : m_channels) {
        channel->getFilterRef().sampleFreq = frequency;
    }
}

void Montage::createChannelFilterList()
{
    BPCommon::log(m_logLevel, "Montage::createChannelFilterList");
    for (AmplifierChannel *channel : m_channels) {
        if (channel->getFilterRef().objects.empty()) {
            for (const QString &note : notesOn(*channel)) {
                BPCommon::log(m_logLevel, "Montage::createChannelFilterList %s", note);
            }
            buildFilters(*channel);
        }
    }
}

QStringList Montage::filterNotes() const
{
    QStringList notes;
    for (const AmplifierChannel *channel : m_channels) {
        notes << notesOn(*channel);
    }
    return notes;
}

void Montage::removeChannelFilterList()
{
    BPCommon::log(m_logLevel, "Montage::removeChannelFilterList");
    for (AmplifierChannel *channel : m_channels) {
        channel->getFilterRef().objects.clear();
    }
}

void Montage::channelsChanged()
{
}

void Montage::makeNewListFromFile(const QString &path)
{
    QFile file(path);
    XMLChannel reader;
    m_channels = channelsFromText(reader.readFile(file));
    reader.restoreNames(m_channels);
    if (!reader.errorText().isEmpty()) {
        BPCommon::log(m_logLevel, "Montage::makeNewListFromFile %s: %s", path, reader.errorText());
    }
}

void Montage::readNames(const QJsonObject &json)
{
    const QJsonValue name = json.value(QLatin1String("name"));
    if (name.isString()) {
        m_name = name.toString();
        m_fileName = m_name + QLatin1String(".xml");
    }
}

bool Montage::isInside(const char *operation, qint64 index) const
{
    if (index >= 0 && index < static_cast<qint64>(m_channels.size())) {
        return true;
    }
    BPCommon::log(m_logLevel, "Montage::%s index %i is outside the list of %i channels", operation, index,
                  m_channels.size());
    return false;
}

bool Montage::isNewChannel(const AmplifierChannel *channel) const
{
    return channel != nullptr && std::find(m_channels.cbegin(), m_channels.cend(), channel) == m_channels.cend();
}

/// Takes the place of the present channels, which are deleted.
void Montage::takeChannels(std::vector<AmplifierChannel *> channels)
{
    std::swap(m_channels, channels);
    channelsChanged();
    qDeleteAll(channels);
}
