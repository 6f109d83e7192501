#include "server/handlers/HandlerList.h"

#include "server/handlers/AlgorithmRequests.h"
#include "server/handlers/DeviceRequests.h"
#include "server/handlers/MontageRequests.h"
#include "server/handlers/ProfileRequests.h"
#include "server/handlers/RecordRequests.h"
#include "server/handlers/SignalRequests.h"
#include "server/handlers/StateRequests.h"

namespace bp {

std::vector<std::unique_ptr<ProcessRequest>> createHandlers(server_state &state, SampleBuffer &samples,
                                                            const LastValues &last, const QList<AmplifierInfo> &devices)
{
    std::vector<std::unique_ptr<ProcessRequest>> handlers;
    const auto add = [&handlers](auto handler) { handlers.push_back(std::move(handler)); };
    add(std::make_unique<RequestGetInfo>(state, last));
    add(std::make_unique<RequestGetData>(state, samples));
    add(std::make_unique<RequestGetStates>(state, last));
    add(std::make_unique<RequestLastState>(state, last));
    add(std::make_unique<RequestGetLastRhythmOrState>(state, last));
    add(std::make_unique<RequestGetSpectrum>(state, last));
    add(std::make_unique<RequestGetLastRhythm>(state, last));
    add(std::make_unique<RequestWriteStateFile>(state));
    add(std::make_unique<RequestStopStartTraining>(state));
    add(std::make_unique<RequestGetHalvinStatus>(state));
    add(std::make_unique<RequestSetProfile>(state));
    add(std::make_unique<RequestGetProfileList>(state));
    add(std::make_unique<RequestStartWriteFile>(state));
    add(std::make_unique<RequestGetDiscoverDevice>(state, devices));
    add(std::make_unique<RequestStartDevice>(state, devices));
    add(std::make_unique<RequestStopDevice>(state));
    add(std::make_unique<RequestMontageEdit>(state));
    add(std::make_unique<RequestAddNewProfile>(state));
    add(std::make_unique<RequestGetAlgorithms>(state));
    add(std::make_unique<RequestRemoveAllRecords>(state));
    // The last one, with words that contain none of the others: requests for the others never reach it.
    add(std::make_unique<RequestRecordLabel>(state));
    return handlers;
}

} // namespace bp
