#pragma once

#include "server/ProcessRequest.h"

/// "getmontagelist", "getmontageinfo" and "setmontagename".
class RequestMontageEdit : public ProcessRequest
{
public:
    explicit RequestMontageEdit(server_state &state);

private:
    void getList();
    void getInfo();
    void setMontage();
    bool readDescription();
    bool readFile();
};
