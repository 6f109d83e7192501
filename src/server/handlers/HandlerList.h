#pragma once

#include "server/ProcessRequest.h"

#include <QList>

#include <memory>
#include <vector>

class SampleBuffer;
struct LastValues;

namespace bp {

/// The handlers of all commands, in the order in which a request line is matched. The order decides where a word occurs
/// in another one, and where a line contains several. What the handlers read is borrowed.
std::vector<std::unique_ptr<ProcessRequest>>
createHandlers(server_state &state, SampleBuffer &samples, const LastValues &last, const QList<AmplifierInfo> &devices);

} // namespace bp
