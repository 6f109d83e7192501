#pragma once

#include "common/BPExport.h"
#include "devices/AmplifierInfo.h"

#include <QList>
#include <QObject>
#include <QString>

#include <atomic>

class Amplifier;

/// For Q_PLUGIN_METADATA of a device plug-in.
#define AmplifierHelper_iid "tavrix.BioProcessing.AmplifierHelper/1.0"

/// The object of a device plug-in: knows how to find and create the devices of its family.
///
/// Owns the devices it finds: the same device is the same pointer in every search, and an object once handed out lives
/// as long as the helper, whether the device is still there or not. The virtual operations are called from the search
/// thread, one at a time; their order is the interface to the plug-ins.
class BIOPROCESSING_EXPORT AmplifierHelper : public QObject
{
    Q_OBJECT
public:
    explicit AmplifierHelper(QObject *parent = nullptr);
    ~AmplifierHelper() override;

    /// True when findDevices() may be called now; otherwise this round goes without the helper.
    virtual bool isReadyToSearch() = 0;
    /// Appends the devices that are present.
    virtual void findDevices(QList<Amplifier *> &devices) = 0;
    /// Appends every device found so far, present or not.
    virtual void getAllDevices(QList<Amplifier *> &devices);
    /// Identifies the helper: of two with the same name, the one that was loaded later is used.
    virtual QString getHelperName();
    /// Forgets what was found, so that the next search starts anew. The objects live on.
    virtual void clearDeviceList();
    /// Tells that searching was switched on or off.
    virtual void setSearchEnabled(bool enabled);

    /// Descriptions of the devices that getAllDevices() gives.
    QList<AmplifierInfo> getAmplifiers();
    /// Makes a device ready for a new session: present, its parameters at their defaults. False for null.
    bool initializeCurrentDevice(Amplifier *device);
    /// Set while the search runs; a findDevices() that takes long looks at isWorking() and returns early when it is
    /// not.
    void setWorkFlag(bool work);

protected:
    bool isWorking() const { return m_work.load(); }

private:
    std::atomic<bool> m_work{true};
};
