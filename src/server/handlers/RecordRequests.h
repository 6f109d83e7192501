#pragma once

#include "server/ProcessRequest.h"

/// "startwritefile" and "stopwritefile".
class RequestStartWriteFile : public ProcessRequest
{
public:
    explicit RequestStartWriteFile(server_state &state);

private:
    void startWriting();
    void stopWriting();
};

/// "removeallrecords".
class RequestRemoveAllRecords : public ProcessRequest
{
public:
    explicit RequestRemoveAllRecords(server_state &state);

private:
    void removeRecords();
};

/// "writelabel" and "getrecordfile".
class RequestRecordLabel : public ProcessRequest
{
public:
    /// Of the UTF-8 text; a recording keeps no more of a label.
    static constexpr int kMaxLabelBytes = 40;

    explicit RequestRecordLabel(server_state &state);

private:
    void writeLabel();
    void getFile();
};
