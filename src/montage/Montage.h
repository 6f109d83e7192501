#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "common/MontageType.h"
#include "montage/ChannelData.h"

#include <QJsonObject>
#include <QList>
#include <QMetaType>
#include <QSet>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <atomic>
#include <vector>

class AmplifierChannel;

/// The ordered list of output channels computed from a device's channels, and the filters of each.
///
/// Group numbers are device channels counted from 1:
///
/// | montage | group 1                                    | group 2                                                   |
/// | ------- | ------------------------------------------ | --------------------------------------------------------- |
/// | usual   | active input, 0 none                       | reference input, 0 none                                   |
/// | bipolar | active input, 0 reads device channel 1     | 0 none, 1 left referent, 2 right referent, 3 mean of both |
/// | average | active input, 0 reads device channel 1     | 0 the average, 1 and 2 none, n ≥ 3 device channel n − 2   |
///
/// Owns its channels; copies are deep. Belongs to one thread, which is also the one that gives it to a reader. While a
/// reader runs, the filters of the channels may be changed (by the operations below, and in the channels' lists) and
/// count from its next block on; names, inputs and scales may not: they count when the montage is given to the reader
/// again. Where several readers have the montage, the one that got it last follows the changes, and the others go on
/// with the filters they have.
class BIOPROCESSING_EXPORT Montage
{
public:
    /// No file, JSON text or resize() makes a montage larger.
    static constexpr unsigned kMaxChannels = 4096;

    Montage();
    Montage(const Montage &other);
    /// Leaves the source empty.
    Montage(Montage &&other) noexcept;
    /// Takes the channels over; null ones are dropped.
    explicit Montage(const QList<AmplifierChannel *> &channels);
    explicit Montage(const QJsonObject &json);
    /// @param text  channels in their text form, one per line; any other text without a line break is the path of a
    ///              montage file, of which only the channels are read
    explicit Montage(const QString &text);
    Montage &operator=(const Montage &other);
    /// Null changes nothing.
    Montage &operator=(const Montage *other);

    virtual ~Montage();
    virtual QJsonObject toJson() const;
    /// Missing keys leave what they stand for as it is.
    virtual void fromJson(const QJsonObject &json);
    virtual Montage_Type getType() const;

    /// An index outside the list does nothing, gives null and is traced.
    unsigned size() const;
    bool empty() const;
    AmplifierChannel *operator[](unsigned index) const;
    /// Takes the channel over. False, and the channel stays the caller's, when it is null or already here.
    bool push_back(AmplifierChannel *channel);
    /// As push_back(); the size is a valid position.
    bool insert(int index, AmplifierChannel *channel);
    /// Hands the channel to the caller.
    AmplifierChannel *erase(int index);
    void removeChannel(unsigned index);
    /// Adds default channels or deletes from the end; more than kMaxChannels does nothing.
    void resize(unsigned size);
    void clearChannel();
    /// Numbers the channels by position, from 0.
    void rebuildMontageChannelList();
    /// The channels as an array of size() pointers, valid until the list changes.
    AmplifierChannel *const *getData() const;

    QString getMontageName() const { return m_name; }
    void setMontageName(const QString &name) { m_name = name; }
    QString getMontageFileName() const { return m_fileName; }
    void setMontageFileName(const QString &fileName) { m_fileName = fileName; }
    QStringList getChannelNames() const;
    /// Position of the first channel of that name, −1 when there is none.
    int getIndexByName(const QString &name) const;
    /// Positions of the ECG channels.
    QSet<int> getECGChannel() const;
    void makeChannelDataList(std::vector<ChannelData> &channels) const;
    /// Replaces the contents of the vector by deep copies, which belong to the caller.
    void copyChannels(std::vector<AmplifierChannel *> &channels) const;

    /// Which device channels a bipolar or average montage takes its reference from. Off, the default: those with the
    /// places of the referents, or of the averaged channels, in the montage; the result is wrong for a montage that
    /// leaves device channels out or orders them anew. On: those that these channels read (group 1; the place where it
    /// is 0). Counts when the montage is given to a reader; copies have it, files and JSON texts do not.
    void setReferencesByInput(bool on) { m_referencesByInput = on; }
    bool isReferencesByInput() const { return m_referencesByInput; }

    /// Hz.
    float getCurrentSampleFreq() const { return m_sampleFreq.load(); }
    /// Filters that are already built stay as they are.
    void setCurrentSampleFreq(float frequency);
    /// Builds the filters of every channel that has none: low-pass, high-pass, notch. What filterNotes() says of them
    /// is traced.
    void createChannelFilterList();
    /// While a reader runs, a block that falls between this and createChannelFilterList() is not filtered; giving the
    /// montage to the reader again replaces the filters without a gap.
    void removeChannelFilterList();
    /// A sentence for the user on each channel filter that createChannelFilterList() leaves out at the present rate,
    /// because its frequency does not lie between 0 and half the rate, or designs another way, because the usual design
    /// is unstable there (ButterworthFilter::isStable). Empty when all are as usual.
    QStringList filterNotes() const;

protected:
    /// Called when channels were added, moved or taken out, before any of them is deleted.
    virtual void channelsChanged();

    const std::vector<AmplifierChannel *> &channels() const { return m_channels; }

private:
    void makeNewListFromFile(const QString &path);
    void readNames(const QJsonObject &json);
    bool isInside(const char *operation, qint64 index) const;
    bool isNewChannel(const AmplifierChannel *channel) const;
    void takeChannels(std::vector<AmplifierChannel *> channels);

    BPCommon::LogEvent m_logLevel = BPCommon::LogMontage;
    QString m_fileName;
    QString m_name;
    std::vector<AmplifierChannel *> m_channels; ///< owned
    bool m_referencesByInput = false;
    std::atomic<float> m_sampleFreq{100.0f}; ///< a reader's loop looks at it, too
};

// Signals carry montages between threads.
Q_DECLARE_METATYPE(QSharedPointer<Montage>)
