#pragma once

#include <QHostAddress>
#include <QString>
#include <QStringList>

namespace bp {

struct RequestHead;

/// Keeps web pages away from the service. A browser sends a page's request to any address, this computer's own too, and
/// the command word would do its work before the page is denied the answer.
///
/// Turned away is what names a foreign page ("Origin", or else "Referer"), what a browser marks as sent by one
/// ("Sec-Fetch-Site"), and what was sent to a host by a name that is not this computer's ("Host"), by which a page
/// could pass as the service's own. Programs that are no browsers send none of these.
class BrowserGuard
{
public:
    /// @param origins  "http://localhost:8000" for example, or "*" for all; their host names are let in too
    void setAllowedOrigins(const QStringList &origins);
    /// Empty for a request that may be carried out, otherwise why it may not.
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
