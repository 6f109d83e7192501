#pragma once

#include "server/server_state.h"

/// Conditions of commands: see ProcessRequest::Precondition.
namespace bp {

inline bool isReading(const server_state &state)
{
    return state.readMode;
}

inline bool isIdle(const server_state &state)
{
    return !state.readMode;
}

inline bool isBci(const server_state &state)
{
    return state.bciMode;
}

inline bool showsRhythms(const server_state &state)
{
    return !state.bciMode;
}

inline bool hasRecordedStates(const server_state &state)
{
    return !state.recordedStates.isEmpty();
}

/// A recording, not a state file.
inline bool isRecording(const server_state &state)
{
    return state.writingFile;
}

/// A recording or a state file.
inline bool isWriting(const server_state &state)
{
    return state.writingFile || state.writingStateFile;
}

inline bool isNotWriting(const server_state &state)
{
    return !isWriting(state);
}

} // namespace bp
