#pragma once

#include "server/ProcessRequest.h"

/// "startwritefile" and "stopwritefile"; their messages begin with the word that matched and ":".
class RequestStartWriteFile : public ProcessRequest
{
public:
    explicit RequestStartWriteFile(server_state &state);

private:
    void startWriting();
    void stopWriting();
    bool isWriting() const;
    QString prefixed(const char *message) const;
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
