#pragma once

#include "server/server_state.h"

/// Conditions of commands: see ProcessRequest::Precondition.
namespace bp {

inline constexpr auto isReading = [](const server_state &state) { return state.readMode; };
inline constexpr auto isIdle = [](const server_state &state) { return !state.readMode; };
inline constexpr auto isBci = [](const server_state &state) { return state.bciMode; };
inline constexpr auto showsRhythms = [](const server_state &state) { return !state.bciMode; };
inline constexpr auto hasRecordedStates = [](const server_state &state) { return !state.recordedStates.isEmpty(); };
/// A recording, not a state file.
inline constexpr auto isRecording = [](const server_state &state) { return state.writingFile; };
/// A recording or a state file.
inline constexpr auto isWriting = [](const server_state &s) { return s.writingFile || s.writingStateFile; };
inline constexpr auto isNotWriting = [](const server_state &state) { return !isWriting(state); };

} // namespace bp
