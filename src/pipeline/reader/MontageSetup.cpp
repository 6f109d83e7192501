#include "pipeline/reader/MontageSetup.h"

#include "devices/Amplifier.h"
#include "devices/AmplifierChannel.h"
#include "filters/engine/FilterFeed.h"
#include "montage/BipolarMontage.h"
#include "montage/Montage.h"

#include <algorithm>

namespace bp {

namespace {

/// A device channel number from a montage; none when the device has no such channel.
unsigned knownChannel(unsigned number, unsigned channels)
{
    return number <= channels ? number : 0;
}

/// The device channel that stands for a montage channel in a reference.
/// @param place  of the channel in the montage, counted from 1
unsigned referenceInput(const Montage &montage, const AmplifierChannel &channel, unsigned place, unsigned channels)
{
    const bool isInput = montage.isReferencesByInput() && channel.getGroup1() > 0;
    return knownChannel(isInput ? channel.getGroup1() : place, channels);
}

unsigned referentInput(const BipolarMontage &montage, const Referent &referent, unsigned channels)
{
    return referent.channel == nullptr
        ? 0
        : referenceInput(montage, *referent.channel, static_cast<unsigned>(referent.number), channels);
}

/// Group 2 within what the arithmetic of the montage may read.
/// @param usual  group 2 is a device channel, whatever the montage's kind
unsigned knownGroup2(unsigned group2, unsigned channels, bool usual, Montage_Type type)
{
    if (usual) {
        return knownChannel(group2, channels);
    }
    return type == Montage_Average && group2 > 2 && group2 - 2 > channels ? 1 : group2;
}

unsigned channelCount(const AmplifierInfo &info)
{
    return static_cast<unsigned>(std::max(0, info.channels()));
}

} // namespace

MontageSetup::MontageSetup(Amplifier &amplifier, const QSharedPointer<Montage> &theMontage)
    : device(&amplifier)
    , montage(theMontage)
    , frequency(amplifier.getFreqValue())
    , info(amplifier.getAmplifierInfo())
    , filterFree(amplifier.isFilterFreeData())
    , filters(std::make_shared<FilterFeed>(theMontage->size()))
{
    // First, so that a reader which had the montage before keeps the filters that are removed now.
    AmplifierChannel *const *const channels = montage->getData();
    for (std::size_t i = 0; i < filters->channels(); ++i) {
        channels[i]->getFilterRef().objects.follow(filters, i);
    }
    montage->removeChannelFilterList();
    montage->setCurrentSampleFreq(frequency);
    montage->createChannelFilterList();
    readChannels();
    readReferents();
}

void MontageSetup::readChannels()
{
    const unsigned inputs = channelCount(info);
    const Montage_Type type = montage->getType();
    const bool usual = filterFree || type == Montage_Usual;
    AmplifierChannel *const *const channels = montage->getData();
    for (std::size_t i = 0; i < filters->channels(); ++i) {
        const AmplifierChannel &channel = *channels[i];
        table.group1.push_back(knownChannel(channel.getGroup1(), inputs));
        table.group2.push_back(knownGroup2(channel.getGroup2(), inputs, usual, type));
        const bool isMissing = table.group1.back() != channel.getGroup1();
        // Input 0 of these kinds is the first channel, which is not what was asked for.
        table.scale.push_back(isMissing && !usual ? 0.0f : channel.getScale());
        const unsigned averaged = referenceInput(*montage, channel, static_cast<unsigned>(i) + 1, inputs);
        if (type == Montage_Average && channel.getGroup2() == 0 && averaged != 0) {
            table.averaged.push_back(averaged);
        }
        if (isMissing || table.group2.back() != channel.getGroup2()) {
            BPCommon::log(BPCommon::LogReader,
                          "DataReader::resizeWorkBuffers channel %s reads an input that the device lacks",
                          channel.getName());
        }
    }
}

void MontageSetup::readReferents()
{
    if (const auto *bipolar = dynamic_cast<const BipolarMontage *>(montage.data())) {
        leftReferent = referentInput(*bipolar, bipolar->getLeftReferent(), channelCount(info));
        rightReferent = referentInput(*bipolar, bipolar->getRightReferent(), channelCount(info));
    }
}

} // namespace bp
