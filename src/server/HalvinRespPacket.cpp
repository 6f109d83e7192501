#include "server/HalvinRespPacket.h"

#include "server/http/JsonBody.h"

HalvinRespPacket::HalvinRespPacket(const QString &text)
    : m_response(text)
    , m_nullText(QStringLiteral("null"))
{
    if (!text.isEmpty()) {
        m_successful = isSuccessfulResponse(text);
        m_content = getContent(text);
    }
}

HalvinRespPacket::HalvinRespPacket(request_type type, const QString &text)
    : HalvinRespPacket(text)
{
    m_requestType = type;
    m_requestText = text;
}

QString HalvinRespPacket::getContent(const QString &text)
{
    const QLatin1String word("Content-Length");
    const int at = text.indexOf(word);
    if (at <= 0) {
        return QString();
    }
    const int lineEnd = text.indexOf(QLatin1String("\r\n"), at + word.size());
    if (lineEnd <= 0) {
        return QString();
    }
    const QStringRef field = text.midRef(at + word.size(), lineEnd - at - word.size());
    const int colon = field.indexOf(QLatin1Char(':'));
    const int length = colon < 0 ? 0 : field.mid(colon + 1).trimmed().toInt();
    const int blankLine = text.indexOf(QLatin1String("\r\n\r\n"), lineEnd);
    // A negative length reads as "all of it" in mid(): it announces nothing instead.
    return blankLine > 0 && length > 0 ? text.mid(blankLine + 4, length) : QString();
}

bool HalvinRespPacket::isSuccessfulResponse(const QString &text)
{
    return text.indexOf(QLatin1String("200 OK")) > 0;
}

void HalvinRespPacket::reset()
{
    m_successful = false;
    m_requestType = request_none;
    m_content.clear();
    m_response.clear();
    m_nullText.clear();
    m_requestText.clear();
}

QJsonObject HalvinRespPacket::contentToJson() const
{
    return bp::jsonObject(m_content);
}
