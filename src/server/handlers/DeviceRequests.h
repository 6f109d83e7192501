#pragma once

#include "server/ProcessRequest.h"

#include <QList>

/// "discoverdevices", "getdeviceparametrs" and "setdeviceparametrs".
class RequestGetDiscoverDevice : public ProcessRequest
{
public:
    RequestGetDiscoverDevice(server_state &state, const QList<AmplifierInfo> &devices);

private:
    void discover();
    void getParameters();
    void setParameters();

    const QList<AmplifierInfo> &m_devices;
};

/// "startdevice", with or without a montage.
class RequestStartDevice : public ProcessRequest
{
public:
    RequestStartDevice(server_state &state, const QList<AmplifierInfo> &devices);

private:
    void startDevice();

    const QList<AmplifierInfo> &m_devices;
};

/// "stopdevice".
class RequestStopDevice : public ProcessRequest
{
public:
    explicit RequestStopDevice(server_state &state);

private:
    void stopDevice();
};
