#pragma once

#include "common/BPExport.h"
#include "montage/Montage.h"

#include <QSharedPointer>

/// A reference electrode of a bipolar montage.
struct Referent
{
    int number = -1; ///< position in the montage counted from 1; −1 when there is none
    AmplifierChannel *channel = nullptr; ///< borrowed from the montage; null when there is none

    void reset() { *this = Referent(); }
};

/// References every channel to the left ear, the right ear or both, chosen by the electrode's name.
///
/// The referents follow their channels when the list changes; one whose channel leaves the list is reset.
class BIOPROCESSING_EXPORT BipolarMontage : public Montage
{
public:
    /// These constructors copy, then choose referents and group 2 anew by the names: "A1" left, "A2" right, odd
    /// electrodes left, even ones right, those without a number both.
    explicit BipolarMontage(const Montage &other);
    explicit BipolarMontage(const QSharedPointer<Montage> &other);
    /// As above, then the referents that the JSON text names.
    explicit BipolarMontage(const QJsonObject &json);
    /// A faithful copy, referents and groups as they are; of null, an empty montage.
    explicit BipolarMontage(const BipolarMontage *other);
    BipolarMontage(const BipolarMontage &other);
    BipolarMontage &operator=(const BipolarMontage &other);

    QJsonObject toJson() const override;
    void fromJson(const QJsonObject &json) override;
    Montage_Type getType() const override;

    /// The first channel of that name becomes the referent and is itself unreferenced; no such channel resets it.
    void setLeftReferent(const QString &name);
    void setRightReferent(const QString &name);
    const Referent &getLeftReferent() const { return m_left; }
    const Referent &getRightReferent() const { return m_right; }
    /// Both designate a channel.
    bool isReferentsCorrect() const { return m_left.channel != nullptr && m_right.channel != nullptr; }

protected:
    void channelsChanged() override;

private:
    void parseChannelNames();
    void setReferentsFrom(const QJsonObject &json);
    void setReferent(Referent &referent, const QString &name);
    void followChannel(Referent &referent) const;
    Referent sameReferent(const Referent &other) const;

    Referent m_left;
    Referent m_right;
};
