#include "server/http/BrowserGuard.h"

#include "server/http/HttpRequest.h"

#include <QUrl>

namespace bp {

namespace {

QString plainOrigin(const QString &origin)
{
    const QString text = origin.trimmed().toLower();
    return text.endsWith(QLatin1Char('/')) ? text.chopped(1) : text;
}

/// Scheme, host and port of an address; "null" for one without.
QString originOf(const QByteArray &url)
{
    const QUrl parsed = QUrl::fromEncoded(url);
    if (!parsed.isValid() || parsed.host().isEmpty()) {
        return QStringLiteral("null");
    }
    return plainOrigin(parsed.toString(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery
                                       | QUrl::RemoveFragment | QUrl::StripTrailingSlash));
}

/// The host of "host:port", without brackets.
QString hostOf(const QString &hostAndPort)
{
    return QUrl(QStringLiteral("http://") + hostAndPort).host();
}

} // namespace

void BrowserGuard::setAllowedOrigins(const QStringList &origins)
{
    m_origins.clear();
    m_hosts.clear();
    for (const QString &origin : origins) {
        m_origins << plainOrigin(origin);
        m_hosts << QUrl(m_origins.constLast()).host();
    }
    m_hosts.removeAll(QString());
    m_isOpen = m_origins.contains(QStringLiteral("*"));
}

QString BrowserGuard::refusal(const RequestHead &head, const QHostAddress &address) const
{
    if (m_isOpen) {
        return {};
    }
    const QString host = QString::fromLatin1(head.field("host")).toLower();
    if (head.fields.contains("host") && !isOwnHost(host, address)) {
        return QStringLiteral("This host name is not allowed");
    }
    QString origin = QString::fromLatin1(head.field("origin"));
    if (origin.isEmpty() && head.fields.contains("referer")) {
        origin = originOf(head.field("referer"));
    }
    const QByteArray site = head.field("sec-fetch-site");
    const bool isFromPage = !site.isEmpty() && site != "none" && site != "same-origin";
    const bool isRefused = origin.isEmpty() ? isFromPage : !isAllowed(origin, host);
    return isRefused ? QStringLiteral("This origin is not allowed") : QString();
}

bool BrowserGuard::isAllowed(const QString &origin, const QString &host) const
{
    const QString plain = plainOrigin(origin);
    return m_origins.contains(plain) || plain == QLatin1String("http://") + host;
}

/// The address of the connection is allowed as a number: unlike a name, it cannot be redirected to this computer.
bool BrowserGuard::isOwnHost(const QString &host, const QHostAddress &address) const
{
    const QString name = hostOf(host);
    const QHostAddress number(name);
    return name == QLatin1String("localhost") || m_hosts.contains(name)
        || (!number.isNull() && (number.isLoopback() || number.isEqual(address, QHostAddress::ConvertV4MappedToIPv4)));
}

} // namespace bp
