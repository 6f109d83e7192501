#pragma once

#include <QHostAddress>
#include <QString>
#include <QStringList>

namespace bp {

struct RequestHead;

/// Rejects requests of web pages. A browser sends a page's request to any address, also to this computer; it only hides
/// the answer from the page, when the command has already been carried out.
///
/// Rejected are requests that name a foreign page ("Origin", or else "Referer"), that a browser marks as sent by one
/// ("Sec-Fetch-Site"), and that were sent to a host name that is not this computer's ("Host"): a page could use such a
/// name to pass as the service's own page. Programs other than browsers send none of these.
class BrowserGuard
{
public:
    /// @param origins  "http://localhost:8000" for example, or "*" for all; requests to their host names are allowed
    /// too
    void setAllowedOrigins(const QStringList &origins);
    /// Why the request is rejected; empty for one that may be carried out.
    /// @param address  at which the request arrived
    QString refusal(const RequestHead &head, const QHostAddress &address) const;

private:
    bool isAllowed(const QString &origin, const QString &host) const;
    bool isOwnHost(const QString &host, const QHostAddress &address) const;

    QStringList m_origins;
    QStringList m_hosts;
    bool m_isOpen = false;
};

} // namespace bp
