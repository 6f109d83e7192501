#pragma once

#include "server/ProcessRequest.h"

struct LastValues;

/// "getstates": the last states, oldest first.
class RequestGetStates : public ProcessRequest
{
public:
    RequestGetStates(server_state &state, const LastValues &last);

private:
    void getStates();

    const LastValues &m_last;
};

/// "getlaststate" and "setstate".
class RequestLastState : public ProcessRequest
{
public:
    RequestLastState(server_state &state, const LastValues &last);

private:
    void getLastState();
    void setState();

    const LastValues &m_last;
};

/// "writestatefile" and "removestatefile"; the state follows the word in the request line.
class RequestWriteStateFile : public ProcessRequest
{
public:
    static constexpr int kFirstState = 1;
    static constexpr int kLastState = 8;

    explicit RequestWriteStateFile(server_state &state);

private:
    void writeStateFile();
    void removeStateFile();
    /// Reads the state from the request line; false when the request has been rejected.
    bool readState();
    QString argument() const;
    QString argumentForm(const char *message) const;
};

/// "starttraining" and "stoptraining".
class RequestStopStartTraining : public ProcessRequest
{
public:
    explicit RequestStopStartTraining(server_state &state);

private:
    void startTraining();
    void stopTraining();
};
