#pragma once

#include "common/BPExport.h"
#include "server/RequestType.h"

#include <QJsonObject>
#include <QMetaType>
#include <QString>

/// An HTTP message of the command service as text, with its body cut out. A value.
class BIOPROCESSING_EXPORT HalvinRespPacket
{
public:
    HalvinRespPacket() = default;
    HalvinRespPacket(const QString &text);
    HalvinRespPacket(request_type type, const QString &text);

    /// Body of a request or an answer: as many UTF-16 units behind the blank line as "Content-Length" says, fewer when
    /// there are not so many. Empty when the message has none.
    static QString getContent(const QString &text);
    /// Whether "200 OK" occurs behind the first character.
    static bool isSuccessfulResponse(const QString &text);

    void reset();
    bool isSuccessful() const { return m_successful; }
    request_type getRequestType() const { return m_requestType; }
    /// Top-level object of the body; empty when there is none.
    QJsonObject contentToJson() const;
    const QString &getContent() const { return m_content; }
    const QString &getResponse() const { return m_response; }
    const QString &getRequestText() const { return m_requestText; }

private:
    bool m_successful = false;
    request_type m_requestType = request_none;
    QString m_content;
    QString m_response;
    QString m_nullText;
    QString m_requestText;
};

Q_DECLARE_METATYPE(HalvinRespPacket)
