#include "service/CompoundSide.h"

#include "Console.h"
#include "acquire/MontageChoice.h"
#include "algorithms/Spectrum.h"
#include "commands/Refusal.h"
#include "devices/Amplifier.h"
#include "devices/AmplifierChannel.h"
#include "devices/DeviceManager.h"
#include "montage/Montage.h"
#include "pipeline/DataCompound.h"
#include "server/DataServer.h"
#include "server/ProcessRequest.h"

#include <QCoreApplication>

#include <algorithm>
#include <limits>
#include <numeric>

namespace {

constexpr std::size_t kLeadingValues = 4; ///< of a rhythm's result, before the channels
constexpr qint64 kOtherChannelsMs = 500; ///< blocks of the montage before may still be on their way

const QString kSpectrum = QStringLiteral("SpectrumOnline");
const QString kIndex = QStringLiteral("SpectrumNorm");
const QString kDependent = QStringLiteral("DependSpectrumNorm");
const QString kChannel = QStringLiteral("channel");

/// The EEG channels, or all when there are none.
std::vector<unsigned> rhythmChannels(const Montage &montage)
{
    std::vector<unsigned> eeg;
    for (unsigned i = 0; i < montage.size(); ++i) {
        if (montage[i]->getChannelType() == BPCommon::EEG) {
            eeg.push_back(i);
        }
    }
    if (eeg.empty()) {
        eeg.resize(montage.size());
        std::iota(eeg.begin(), eeg.end(), 0u);
    }
    return eeg;
}

void refuseTo(Colleague *sender, const QString &refusal)
{
    if (RequestExchange *exchange = ProcessRequest::exchangeOf(sender)) {
        exchange->refusal = refusal;
    }
}

} // namespace

CompoundSide::CompoundSide(server_state &state, DataServer &server, const QString &recordFolder, QObject *parent)
    : QObject(parent)
    , m_state(state)
    , m_server(server)
    , m_compound(std::make_unique<DataCompound>(nullptr, QSharedPointer<Montage>()))
    , m_records(state, *m_compound, recordFolder)
{
    connect(m_compound.get(), &DataCompound::newSampleData, this, &CompoundSide::takeData);
    connect(m_compound.get(), &DataCompound::currentDeviceReturnError, this, &CompoundSide::takeDeviceCode);
    connect(m_compound.get(), &DataCompound::samplesMissed, this, [](qint64 samples) {
        Console::error(
            QStringLiteral("The service was too busy: %1 samples were recorded, but not handed out.").arg(samples));
    });
    connect(m_compound.get(), &DataCompound::recordNotice, this, &Console::error);
    connect(m_compound.get(), &DataCompound::currentLabel, this, [](const QString &time, const QString &label) {
        if (time == QLatin1String("-")) {
            Console::error(QStringLiteral("The label \"%1\" could not be written.").arg(label));
        }
    });
}

CompoundSide::~CompoundSide()
{
    stop();
}

void CompoundSide::notify(Colleague *sender, QString message)
{
    if (message == QLatin1String("stopDevice")) {
        const QString reason = stop();
        refuseTo(sender, reason.isEmpty() ? reason : QStringLiteral("The device has stopped. ") + reason);
    } else if (message == QLatin1String("startWritingFlag")) {
        refuseTo(sender, m_records.start(m_state.currentDevice.name()));
    } else if (message == QLatin1String("stopWritingFlag")) {
        refuseTo(sender, m_records.stopAndWait());
    } else if (message == QLatin1String("removeRecordFile")) {
        refuseTo(sender, m_records.removeAll());
    } else if (message == QLatin1String("writeLabel")) {
        writeLabel(sender);
    } else if (message == QLatin1String("getRecordFile")) {
        tellRecordFile(sender);
    }
}

void CompoundSide::writeLabel(Colleague *sender)
{
    if (const RequestExchange *exchange = ProcessRequest::exchangeOf(sender)) {
        m_compound->slotSetLabelToEDF(exchange->label);
    }
}

void CompoundSide::tellRecordFile(Colleague *sender)
{
    RequestExchange *exchange = ProcessRequest::exchangeOf(sender);
    if (exchange == nullptr) {
        return;
    }
    exchange->recordPath = m_records.currentPath();
    if (exchange->recordPath.isEmpty() && !m_records.lastError().isEmpty()) {
        exchange->refusal =
            QStringLiteral("getrecordfile: no recording is being written. The last one: ") + m_records.lastError();
    }
}

void CompoundSide::setAlgorithms(const std::vector<UnitParams> &algorithms)
{
    m_algorithms = algorithms;
    m_server.updateRhythmList(m_algorithms);
    if (m_device != nullptr) {
        m_compound->setAlgorithmParams(this, withChannels(m_algorithms));
        m_server.setSpectrumNormalLength(static_cast<unsigned>(spectrumPoints()));
    }
}

void CompoundSide::updateAlgorithm(const UnitParams &params)
{
    const auto same = std::find_if(m_algorithms.begin(), m_algorithms.end(), [&params](const UnitParams &known) {
        return known.getName() == params.getName() && known.getParamDescriptor() == params.getParamDescriptor();
    });
    if (same != m_algorithms.end()) {
        *same = params;
    } else {
        m_algorithms.push_back(params);
        m_server.updateRhythmList(m_algorithms);
    }
    if (m_device != nullptr) {
        m_compound->updateAlgorithm(withChannels(params));
        m_server.setSpectrumNormalLength(static_cast<unsigned>(spectrumPoints()));
    }
}

void CompoundSide::start(const AmplifierInfo &info, QSharedPointer<Montage> montage)
{
    if (m_device != nullptr) {
        m_server.refuse(QStringLiteral("A device is acquiring already."));
        return;
    }
    Amplifier *device = DeviceManager::Instance()->openDevice(info);
    if (device == nullptr) {
        m_server.refuse(QStringLiteral("The device %1 is not there.").arg(info.name()));
        return;
    }
    try {
        montage = montage.isNull() ? m_nextMontage : montage;
        if (montage.isNull()) {
            montage = MontageChoice::choose(device, QString());
        } else {
            MontageChoice::check(montage, QStringLiteral("The montage"), device);
        }
        acquire(device, montage);
    } catch (const Refusal &refusal) {
        DeviceManager::Instance()->releaseDevice(device);
        m_server.refuse(refusal.sentence);
    }
}

void CompoundSide::acquire(Amplifier *device, const QSharedPointer<Montage> &montage)
{
    // The acquisition before ends for good, and what it still had on the way is not taken for this one's.
    m_compound->setNewAmplifier(nullptr, {});
    QCoreApplication::sendPostedEvents(m_compound.get(), QEvent::MetaCall);
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    m_records.reset();

    m_device = device;
    m_nextMontage.clear();
    prepareRecordings();
    useMontage(montage);
    m_compound->setAlgorithmParams(this, withChannels(m_algorithms));
    if (!m_streamName.isEmpty()) {
        m_compound->setLSLStreamParametrs(m_streamName, false, QString());
    }
    m_sinceOtherChannels.invalidate();
    applySettings();
    m_state.readMode = true;
    m_compound->startReadData();
    emit acquiringChanged(true);
}

void CompoundSide::prepareRecordings()
{
    // What is played at another speed has its own time, which labels and the rows of a spreadsheet follow.
    const bool isPlayed = m_device->getAmplifierInfo().name() == QLatin1String("Playback");
    const PlayedRecording played = isPlayed ? m_played.fromWhereDeviceBegins(*m_device) : PlayedRecording();
    m_compound->setSignalClock(isPlayed);
    played.giveTo(*m_compound);
    for (const QString &note : played.notes + deviceNotes(*m_device, true)) {
        Console::error(note);
    }
}

void CompoundSide::useMontage(const QSharedPointer<Montage> &montage)
{
    m_compound->setNewAmplifier(m_device, montage);
    MontageChoice::printFilterNotes(*montage);
    m_montage = montage;
    m_rhythmChannels = rhythmChannels(*montage);
}

/// The set of a rhythm index that names no channels, with those whose rhythms count.
UnitParams CompoundSide::withChannels(const UnitParams &params) const
{
    UnitParams chosen = params;
    if (params.getName() != kIndex || !params.getParamValue(kChannel).isEmpty()
        || m_rhythmChannels.size() == m_montage->size()) {
        return chosen;
    }
    QStringList names;
    for (const unsigned index : m_rhythmChannels) {
        const QString &name = (*m_montage)[index]->getName();
        if (name.contains(QLatin1Char(';')) || m_montage->getIndexByName(name) != static_cast<int>(index)) {
            return chosen; // cannot be named in a list: all channels are calculated
        }
        names << name;
    }
    chosen.setParamValue(kChannel, names.join(QLatin1Char(';')));
    return chosen;
}

QString CompoundSide::channelRefusal(const UnitParams &params) const
{
    for (const custom_param &param : params.getParamList()) {
        const bool isList = m_device != nullptr && param.controlType == custom_param::ControlChannels;
        const QStringList names = isList ? param.getValue().split(QLatin1Char(';'), Qt::SkipEmptyParts) : QStringList();
        for (const QString &name : names) {
            if (m_montage->getIndexByName(name) < 0) {
                return QStringLiteral("There is no channel ") + name;
            }
        }
    }
    return {};
}

std::vector<UnitParams> CompoundSide::withChannels(const std::vector<UnitParams> &params) const
{
    std::vector<UnitParams> chosen;
    std::transform(params.begin(), params.end(), std::back_inserter(chosen),
                   [this](const UnitParams &set) { return withChannels(set); });
    return chosen;
}

void CompoundSide::applySettings()
{
    AmplifierInfo info = m_device->getAmplifierInfo();
    info.setCurrentFreqValue(m_device->getFreqValue());
    m_server.setServerSettings(m_montage, info, spectrumPoints());
    emit streamChanged(m_montage->getChannelNames(), static_cast<double>(m_device->getFreqValue()));
}

/// Of the spectra that the online spectrum will publish.
int CompoundSide::spectrumPoints() const
{
    const auto spectrum = std::find_if(m_algorithms.begin(), m_algorithms.end(),
                                       [](const UnitParams &params) { return params.getName() == kSpectrum; });
    if (spectrum == m_algorithms.end()) {
        return 0;
    }
    const float seconds = qBound(0.0f, spectrum->getParamValue(QStringLiteral("time")).toFloat(), 10.0f);
    return static_cast<int>(Spectrum::binCount(static_cast<std::size_t>(seconds * m_device->getFreqValue())));
}

void CompoundSide::changeMontage(const QSharedPointer<Montage> &montage)
{
    if (montage.isNull()) {
        return;
    }
    try {
        MontageChoice::check(montage, QStringLiteral("The montage"), m_device);
    } catch (const Refusal &refusal) {
        m_server.refuse(refusal.sentence);
        return;
    }
    if (m_device == nullptr) {
        m_nextMontage = montage;
        return;
    }
    if (!m_records.busyStateFolder().isEmpty()) {
        m_records.stop(); // training needs the same channels throughout
    }
    if (montage->size() != m_montage->size()) {
        m_sinceOtherChannels.start();
    }
    useMontage(montage);
    m_compound->updateAlgorithm(withChannels(m_algorithms));
    applySettings();
}

QString CompoundSide::stop()
{
    const QString reason = m_device != nullptr ? m_records.stopAndWait() : QString();
    if (m_device != nullptr) { // it may have ended meanwhile
        end();
    }
    return reason;
}

void CompoundSide::end()
{
    m_compound->stopReadData();
    DeviceManager::Instance()->releaseDevice(m_device);
    m_device = nullptr;
    m_state.readMode = false;
    emit acquiringChanged(false);
}

void CompoundSide::setState(int state)
{
    m_compound->slotTakeCurrentState(static_cast<unsigned char>(state));
}

void CompoundSide::takeData(const std::vector<float> &data, int count)
{
    const bool isLate = m_sinceOtherChannels.isValid() && m_sinceOtherChannels.elapsed() < kOtherChannelsMs;
    if (m_device != nullptr && !isLate) {
        m_server.appendNewData(count, data.data());
        emit samplesTaken(data, count);
    }
}

void CompoundSide::takeDeviceCode(int code)
{
    if (m_device == nullptr) {
        return;
    }
    const QString name = m_device->getAmplifierInfo().name();
    const QString words = m_device->getErrorText(code);
    Console::error(code == Amplifier::kEndOfData
                       ? QStringLiteral("The signal of %1 has ended.").arg(name)
                       : QStringLiteral("The device %1 stopped with code %2%3.")
                             .arg(name)
                             .arg(code)
                             .arg(words.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(words)));
    m_records.stop();
    end();
}

/// Removed algorithms may still send what they had calculated, and one that was changed just before it was removed goes
/// on until the list is set again: null for these.
const UnitParams *CompoundSide::configured(const UnitParams &params) const
{
    const auto found = std::find_if(m_algorithms.begin(), m_algorithms.end(), [&params](const UnitParams &known) {
        return known.getName() == params.getName() && known.getParamDescriptor() == params.getParamDescriptor();
    });
    return found != m_algorithms.end() ? &*found : nullptr;
}

void CompoundSide::takeAlgorithmData(const QString &type, const UnitParams &params, unsigned int channels,
                                     const vector<float> &data)
{
    const UnitParams *known = configured(params);
    if (m_device == nullptr || data.empty() || known == nullptr) {
        return;
    }
    if (params.getName() != kSpectrum) {
        takeRhythm(*known, channels, data);
    } else if (type == QLatin1String("raw") && params.getParamDescriptor().isEmpty()) {
        takeSpectrum(channels, data);
    }
}

void CompoundSide::takeSpectrum(unsigned int channels, const std::vector<float> &data)
{
    if (channels == m_montage->size()) {
        const auto points = static_cast<unsigned>(data.size() / channels); // the artefact mark behind the rows is left
        m_server.appendNewSpectrum(points * channels, data.data());
    }
}

/// Rhythm indices: one value per channel. Heart rate, asymmetry, formula: the value alone.
void CompoundSide::takeRhythm(const UnitParams &known, unsigned int channels, const std::vector<float> &data)
{
    const QString &type = known.getName();
    const QString &name = known.getParamDescriptor().isEmpty() ? type : known.getParamDescriptor();
    if (type != kDependent && type != kIndex) {
        m_server.appendNewRhythm(name, 1, data.data());
        return;
    }
    if (data.front() < 0.0f || data.size() < kLeadingValues + channels) {
        return; // an artefact: the values before stand
    }
    const std::vector<float> values = byChannel(known, channels, data.data() + kLeadingValues);
    m_server.appendNewRhythm(name, static_cast<unsigned>(values.size()), values.data());
}

/// Each value at its channel's place in the montage. Values of channels that the set names itself stay as they are;
/// nothing for values of the montage before.
std::vector<float> CompoundSide::byChannel(const UnitParams &known, unsigned int count, const float *values) const
{
    if (!known.getParamValue(kChannel).isEmpty()) {
        return {values, values + count};
    }
    const bool isOfAll = count == m_montage->size();
    if (!isOfAll && count != m_rhythmChannels.size()) {
        return {};
    }
    std::vector<float> placed(m_montage->size(), std::numeric_limits<float>::quiet_NaN());
    for (std::size_t i = 0; i < m_rhythmChannels.size(); ++i) {
        placed[m_rhythmChannels[i]] = values[isOfAll ? m_rhythmChannels[i] : i];
    }
    return placed;
}
