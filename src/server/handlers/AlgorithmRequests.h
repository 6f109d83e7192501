#pragma once

#include "server/ProcessRequest.h"

/// "getalgorithms", "getalgorithmparams", "setalgorithmparams", "removealgorithm" and "addnewalgorithm".
///
/// A body names an algorithm by its type ("name") and, where a profile has several of one type, by instance ("desc").
class RequestGetAlgorithms : public ProcessRequest
{
public:
    explicit RequestGetAlgorithms(server_state &state);

private:
    void getAlgorithms();
    void getParameters();
    void setParameters();
    void removeAlgorithm();
    void addAlgorithm();
    void addByName(const QJsonArray &list);
    /// Fills the exchange's parameters with those of the algorithm that the body names; false when there is none.
    bool takeAlgorithm();
};
