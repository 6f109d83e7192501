#pragma once

#include "common/BPCommon.h"
#include "common/BPExport.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

#include <atomic>
#include <memory>
#include <vector>

class Amplifier;
class AmplifierHelper;
class QPluginLoader;

/// Loads the device plug-ins and asks their helpers for devices once a second.
///
/// Lives on the search thread, whose work is threadSearch(). The other public operations may be called from any thread:
/// they set flags that the loop looks at. Plug-ins stay loaded until the program ends, and so do their devices.
class BIOPROCESSING_EXPORT DeviceSearcher : public QObject
{
    Q_OBJECT
public:
    explicit DeviceSearcher(QObject *parent = nullptr);
    ~DeviceSearcher() override;

    /// Enabled at first. While disabled the loop runs and asks nobody.
    void setDeviceSearchEnabled(bool enabled);
    /// False ends the loop within a fraction of a second, or when the helper that is searching returns.
    void runningThread(bool running);
    bool isThreadRunning() const { return m_running.load(); }
    /// The helpers forget what they found before the next round.
    void clearDeviceList();

signals:
    /// The devices of one helper, empty when it finds none. Registered for queued connections under this very name.
    void deviceInfo(QList<Amplifier *> &devices);
    void finishThread();
    void runningChanged(bool running);
    /// Goes right before the deviceInfo() of that helper.
    void searchedHelper(const QString &helperName);
    /// Ends each round over all helpers, even when there is none.
    void searchCompleted();

public slots:
    void threadSearch();

protected:
    /// Loads the plug-ins in the sub-folders of "HalvinDevices" beside the program.
    virtual void takeAllPlugins();
    /// Loads the plug-ins in the sub-folders of a folder, in name order. One that cannot be loaded leaves one trace
    /// line.
    void loadPluginsFrom(const QString &folder);
    /// Whether a file counts as a device plug-in: its name contains "Amplifier", its suffix is that of a library.
    bool isCurrentPluginDLL(const QString &path) const;
    /// Takes a helper in, in place of one with the same name; borrowed. False when the object is no helper.
    bool addNewHelper(QObject *instance);
    /// Asks the plug-ins that were loaded last for their helpers.
    void makeHelpres();

private:
    void setWorkFlags(bool work) const;
    void applyRequests();
    void searchOnce();
    void moveToOwner(const QList<Amplifier *> &devices) const;
    void sleepWhileRunning(int milliseconds) const;

    BPCommon::LogEvent m_logLevel = BPCommon::LogDevice;
    std::atomic<bool> m_running{false};
    bool m_pluginsLoaded = false;
    std::atomic<bool> m_searchEnabled{true};
    std::atomic<bool> m_clearRequested{false};
    bool m_helpersEnabled = true; ///< what the helpers were told last
    QList<Amplifier *> m_devices;
    std::atomic<bool> m_helpersReady{false}; ///< from now on m_helpers doesn't change, and any thread may read it
    QMap<QString, AmplifierHelper *> m_helpers; ///< borrowed from their loaders
    std::vector<std::unique_ptr<QPluginLoader>> m_loaders;
    std::size_t m_loadersDone = 0;
};
