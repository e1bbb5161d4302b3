#pragma once

#include "platform/httpsession.h"

#include <QString>

// Lets a request follow a redirect only to https on the service's own API host; anything else
// (another host, plain http, no host) is declined and the 3xx answer becomes the result.
class ServerRedirectPolicy final : public RedirectPolicy {
public:
    explicit ServerRedirectPolicy(QString apiHost) : m_apiHost(std::move(apiHost)) {}
    bool allowsRedirect(const QUrl &target) const override;

private:
    QString m_apiHost;
};
