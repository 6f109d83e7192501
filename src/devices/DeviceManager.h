#pragma once

#include "common/BPExport.h"
#include "devices/AmplifierInfo.h"

#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <memory>
#include <vector>

class Amplifier;
class DeviceSearcher;
class QThread;

/// The devices that are present, and the thread that looks for them.
///
/// Everything is called from the thread on which Instance() was first called; that thread's event loop must run for
/// devices to appear. Devices belong to their plug-ins and live until the program ends.
class BIOPROCESSING_EXPORT DeviceManager : public QObject
{
    Q_OBJECT
public:
    using Callback = void (*)(QList<AmplifierInfo> &devices);

    static DeviceManager *Instance();
    /// Stops the search and deletes the manager; the next Instance() makes a new one. Called by itself when the
    /// application object is destroyed.
    static void freeDeviceManager();

    /// Begins to search, about once a second.
    void startSearchThread();
    /// Waits some seconds at most for a helper that is just searching.
    void stopSearchThread();
    /// Enabled at first. The thread goes on while searching is disabled.
    void setDeviceSearchEnabled(bool enabled);

    int getDeviceCount() const;
    /// The device of an equal description, which then counts as in use: it stays in the list, with presence false, even
    /// when it is no longer found. Null when there is none. Give it back with releaseDevice(), once per call.
    Amplifier *openDevice(const AmplifierInfo &info);
    void releaseDevice(Amplifier *device);
    /// Forgets all devices but those in use, here and in the helpers.
    void clearDeviceList();
    /// Called with all descriptions whenever the list has changed; null for none. A new callback hears of devices that
    /// are already known with the next list that arrives.
    void setCallBackFunction(Callback callback);

signals:
    /// Every helper has been asked once more, and what they found is in the list.
    void searchCompleted();

protected:
    explicit DeviceManager(std::unique_ptr<DeviceSearcher> searcher, QObject *parent = nullptr);
    ~DeviceManager() override;

    /// Merges one helper's list: an entry of an equal description stays, others are added.
    /// @return whether something was added
    bool addDevicesFromList(QList<Amplifier *> &devices);
    /// Removes the devices of the searched helper that are missing from its newest list and not in use.
    /// @param changed  set when something was removed, otherwise left alone
    void removeDeviceFromList(bool &changed);
    void setThreadRunning(bool running);
    /// @return false when the thread still runs after the waiting time
    bool tryStopThread();

protected slots:
    /// Names the helper that the next list belongs to.
    void takeHelperName(const QString &helperName);
    void takeCurrentData(QList<Amplifier *> &devices);

private:
    struct Entry
    {
        Amplifier *device; ///< borrowed from its helper
        QString helper;
        int uses;
    };

    void callHost();

    static DeviceManager *st_pDevicemanager;

    std::unique_ptr<DeviceSearcher> m_searcher;
    std::unique_ptr<QThread> m_thread;
    std::vector<Entry> m_devices;
    QString m_searchedHelper;
    QList<Amplifier *> m_newestList;
    Callback m_callback = nullptr;
    bool m_callbackKnows = true; ///< whether the callback has heard of the present list
};
