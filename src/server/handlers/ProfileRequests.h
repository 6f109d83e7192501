#pragma once

#include "server/ProcessRequest.h"

/// "gethalvinstatus".
class RequestGetHalvinStatus : public ProcessRequest
{
public:
    explicit RequestGetHalvinStatus(server_state &state);

private:
    void getStatus();
};

/// "setcurrentprofile".
class RequestSetProfile : public ProcessRequest
{
public:
    explicit RequestSetProfile(server_state &state);

private:
    void setProfile();
};

/// "getprofilelist".
class RequestGetProfileList : public ProcessRequest
{
public:
    explicit RequestGetProfileList(server_state &state);

private:
    void getList();
};

/// "addnewprofile", for one or several, and "removeprofile".
class RequestAddNewProfile : public ProcessRequest
{
public:
    explicit RequestAddNewProfile(server_state &state);

private:
    void addProfile();
    void addProfiles();
    void removeProfile();
};
