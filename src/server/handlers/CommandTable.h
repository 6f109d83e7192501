#pragma once

#include "server/server_state.h"

#include <array>

class QString;

namespace bp {

/// What a command asks of the server's state.
enum class Condition {
    None,
    Reading, ///< a device streams
    Idle, ///< no device streams
    Bci, ///< the profile is a BCI profile
    Rhythms, ///< the profile is no BCI profile
    Recording, ///< a recording is being written, other than a state file
    StatesRecorded ///< at least one state file exists
};

struct Precondition
{
    Condition condition = Condition::None;
    const char *refusal = ""; ///< what the client is told otherwise
};

/// A command word and its preconditions, in the order in which they are checked.
struct CommandRule
{
    const char *word;
    std::array<Precondition, 3> preconditions{};
};

bool holds(Condition condition, const server_state &state);
/// The rule of a command word, which must be one of the table's.
const CommandRule &commandRule(const QString &word);

} // namespace bp
