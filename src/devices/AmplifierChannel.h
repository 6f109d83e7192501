#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"
#include "filters/FilterList.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

/// One channel of a device or of a montage: number, name, signal type, scale, filter settings and montage inputs.
class BIOPROCESSING_EXPORT AmplifierChannel
{
public:
    /// Filter settings of a channel and the filters built from them.
    ///
    /// A copy has the settings and no objects, and so has the target of an assignment: filter objects hold the history
    /// of one stream. Belongs to the thread that sets the montage up, also while a reader runs the filters.
    struct BIOPROCESSING_EXPORT Filters
    {
        Filters();
        Filters(const Filters &other);
        Filters &operator=(const Filters &other);
        ~Filters();

        float LPF = 0.0f; ///< low-pass cut-off, Hz; 0 is off
        float HPF = 0.0f; ///< high-pass cut-off, Hz; 0 is off
        float BSF = 0.0f; ///< notch frequency, Hz; 0 is off
        float sampleFreq = 100.0f; ///< Hz; the rate that the filters are designed for
        QList<float> LPFValues; ///< choices offered to the user, Hz
        QList<float> HPFValues;
        QList<float> BSFValues;
        bp::FilterList objects; ///< in running order; a reader runs what stands here, from its next block on
    };

    /// Inputs of a montage channel; what the numbers mean depends on the montage (Montage.h).
    struct GroupUnion
    {
        quint32 group1 = 0;
        quint32 group2 = 0;
    };

    AmplifierChannel();
    AmplifierChannel(unsigned int index, float scale, BPCommon::ChannelType type);
    /// A copy; of null, a default channel.
    explicit AmplifierChannel(const AmplifierChannel *other);
    AmplifierChannel(const AmplifierChannel &other) = default;
    /// Missing or unusable keys leave the defaults.
    explicit AmplifierChannel(const QJsonObject &json);
    /// Parses the text form, as parseStringData().
    explicit AmplifierChannel(const QString &text);
    AmplifierChannel &operator=(const AmplifierChannel &other) = default;

    /// Channel number as the device counts it.
    int getIndex() const { return m_index; }
    void setIndex(int index) { m_index = index; }
    QString getName() const { return m_name; }
    void setChannelName(const QString &name) { m_name = name; }
    BPCommon::ChannelType getChannelType() const { return m_type; }
    void setChannelType(BPCommon::ChannelType type) { m_type = type; }
    QString getTextType() const { return BPCommon::channelTypeText(m_type); }
    /// "EEG", "ECG", …, case-sensitive; any other text changes nothing.
    void setTextChannelType(const QString &text);
    /// Factor that the montage applies.
    float getScale() const { return m_scale; }
    void setScale(float scale) { m_scale = scale; }

    /// Cut-offs in Hz, 0 is off. They take effect when the montage next builds its filters.
    float getLPF() const { return m_filters.LPF; }
    void setLPF(float frequency) { m_filters.LPF = frequency; }
    float getHPF() const { return m_filters.HPF; }
    void setHPF(float frequency) { m_filters.HPF = frequency; }
    float getBSF() const { return m_filters.BSF; }
    void setBSF(float frequency) { m_filters.BSF = frequency; }

    quint32 getGroup1() const { return m_groups.group1; }
    void setGroup1(quint32 group) { m_groups.group1 = group; }
    quint32 getGroup2() const { return m_groups.group2; }
    void setGroup2(quint32 group) { m_groups.group2 = group; }
    void getGroupValue(unsigned int &group1, unsigned int &group2) const;
    GroupUnion &getGroupRef() { return m_groups; }
    const GroupUnion &getGroupRef() const { return m_groups; }
    void setGroupData(const GroupUnion &groups) { m_groups = groups; }

    Filters &getFilterRef() { return m_filters; }
    const Filters &getFilterRef() const { return m_filters; }
    /// Takes the settings and empties the list of filter objects.
    void setFilterData(const Filters &filters) { m_filters = filters; }

    /// The choices as texts.
    QStringList getLPFValues() const;
    QStringList getHPFValues() const;
    QStringList getBSFValues() const;
    /// Position of the present value among its choices, 0 when it is none of them.
    int getCurrentIndexLPF() const;
    int getCurrentIndexHPF() const;
    int getCurrentIndexBSF() const;

    bool operator==(const QString &name) const { return m_name == name; }

    QJsonObject toJson() const;
    /// The one-line text form, UTF-8: nine key=value pairs joined by ";".
    QByteArray makeTextView() const;
    /// Reads the text form. Values are stored by position, the keys are only for whoever reads the text (kept: montage
    /// files depend on it). Fewer than seven pairs change nothing; a number that cannot be read is 0, one that is not
    /// finite changes nothing.
    void parseStringData(const QString &text);
    /// Whether parseStringData() takes the text: seven pairs or more.
    static bool isTextForm(const QString &text);
    /// Display text such as "LP:30 HP:0.5 BS:50".
    QString getTextFilterView() const;

private:
    void storeValue(int position, const QString &value);

    int m_index = 0;
    QString m_name;
    BPCommon::ChannelType m_type = BPCommon::EEG;
    float m_scale = 1.0f;
    Filters m_filters;
    GroupUnion m_groups;
};
