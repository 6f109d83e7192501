#pragma once

#include "server/ProcessRequest.h"

class SampleBuffer;
struct LastValues;

/// "getinfo": rate, channels and spectrum frequencies of what streams.
class RequestGetInfo : public ProcessRequest
{
public:
    RequestGetInfo(server_state &state, const LastValues &last);

private:
    void getInfo();

    const LastValues &m_last;
};

/// "getdata": the samples since the last call, each of which is handed out once.
class RequestGetData : public ProcessRequest
{
public:
    RequestGetData(server_state &state, SampleBuffer &samples);

private:
    void getData();

    SampleBuffer &m_samples;
};

/// "getspectrum": the newest spectrum of every channel, the values as texts.
class RequestGetSpectrum : public ProcessRequest
{
public:
    RequestGetSpectrum(server_state &state, const LastValues &last);

private:
    void getSpectrum();

    const LastValues &m_last;
};

/// "getlastrhythm": the newest values of every rhythm.
class RequestGetLastRhythm : public ProcessRequest
{
public:
    RequestGetLastRhythm(server_state &state, const LastValues &last);

private:
    void getLastRhythm();

    const LastValues &m_last;
};

/// "bci": the last state on a BCI profile, the newest rhythm values on another.
class RequestGetLastRhythmOrState : public ProcessRequest
{
public:
    RequestGetLastRhythmOrState(server_state &state, const LastValues &last);

private:
    void getLastRhythmOrState();

    const LastValues &m_last;
};
