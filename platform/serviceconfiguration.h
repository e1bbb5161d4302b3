#pragma once

#include "platform/httpsession.h"

#include <QSslConfiguration>
#include <QString>
#include <QUrl>

#include <optional>

// Where the Korvane service and the maintainers' report service live, and how we trust them.
// Built once from the build-time settings and the support overrides; tests build their own
// pointing at a local server whose certificate only they trust.
struct ServiceConfiguration {
    // The public API's base: https, a host and optionally a port.
    QUrl apiBaseURL;
    // The full report endpoint (https://host/korvane/api/reports); empty when not configured.
    QUrl reportURL;
    // Who receives delivered reports, as shown to the user.
    QString reportRecipient;
    // Trusted roots and protocol settings; nothing means the system's, which is read only when
    // a request is made (reading it costs start-up several milliseconds).
    std::optional<QSslConfiguration> tls;
    // Replaces every client's own time-outs; only tests and support set it.
    std::optional<HttpTimeouts> timeoutOverride;

    // KORVANE_API_URL and KORVANE_REPORT_URL when set and not empty, otherwise the values this
    // build was configured with. KORVANE_CA_FILE, when set, names PEM certificates trusted in
    // addition to the system's (for support against a staging service, and for tests that
    // run korvanectl against their own local server).
    static ServiceConfiguration standard();

    // The API host the redirect policy compares against; empty when the base is unusable.
    QString apiHost() const;
    // The base with the given absolute path ("/v2/servers"); invalid when the base is not an
    // https URL with a host.
    QUrl apiURL(const QString &path) const;
    HttpTimeouts timeouts(HttpTimeouts standard) const { return timeoutOverride.value_or(standard); }
};
