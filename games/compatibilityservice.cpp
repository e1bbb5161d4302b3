#include "games/compatibilityservice.h"

#include "platform/httpsession.h"
#include "platform/jsondecoding.h"
#include "platform/serverredirectpolicy.h"

#include <QJsonObject>
#include <QPromise>
#include <QtConcurrent/QtConcurrentRun>

using namespace Qt::StringLiterals;

SupportedVersions SupportedVersions::parse(const QByteArray &body)
{
    if (body.size() > maximumBodySize)
        throw UrlError(UrlError::dataLengthExceedsMaximum);
    const QJsonObject object = JsonDecoding::object(body);
    const QJsonValue ets2 = object.value("supported_game_version"_L1);
    const QJsonValue ats = object.value("supported_ats_game_version"_L1);
    if (!ets2.isString() || !ats.isString())
        throw DecodingError(u"a supported version is missing or not text"_s);
    SupportedVersions versions{ets2.toString(), ats.toString()};
    if (!GameVersion::supportedParts(versions.ets2) || !GameVersion::supportedParts(versions.ats))
        throw UrlError(UrlError::cannotParseResponse, u"malformed supported version"_s);
    return versions;
}

CompatibilityResult CompatibilityResult::evaluate(const std::optional<GameVersion> &installed,
                                                  const std::optional<QString> &supported)
{
    CompatibilityResult result;
    if (installed)
        result.installed = installed->text();
    result.supported = supported;
    if (installed && supported) {
        if (const std::optional<bool> matches = installed->matches(*supported))
            result.state = *matches ? State::compatible : State::mismatch;
    }
    return result;
}

QString CompatibilityResult::stateName(State state)
{
    switch (state) {
    case State::compatible: return u"compatible"_s;
    case State::mismatch: return u"mismatch"_s;
    case State::unknown: break;
    }
    return u"unknown"_s;
}

CompatibilityService::CompatibilityService(const ServiceConfiguration &service, QObject *parent)
    : QObject(parent), m_versionURL(service.apiURL(u"/v2/version"_s)),
      m_session(new HttpSession({service.timeouts(standardTimeouts),
                                 std::make_shared<ServerRedirectPolicy>(service.apiHost()), service.tls},
                                this))
{
}

CompatibilityService::~CompatibilityService() = default;

QFuture<CompatibilityResult> CompatibilityService::check(GameKind game, const QString &executablePath)
{
    // The executable can be hundreds of megabytes on a slow disk: read it while we wait for
    // the service instead of after.
    QFuture<std::optional<GameVersion>> installed =
        QtConcurrent::run([executablePath] { return GameVersion::read(executablePath); });

    auto promise = std::make_shared<QPromise<CompatibilityResult>>();
    promise->start();
    QFuture<CompatibilityResult> result = promise->future();

    HttpRequest request;
    request.url = m_versionURL;
    request.maximumBodySize = SupportedVersions::maximumBodySize;
    HttpTask *task = m_session->start(request);
    connect(task, &HttpTask::finished, this, [this, game, installed, promise](const HttpResult &answer) mutable {
        std::optional<QString> supported;
        // Whatever went wrong only means that we cannot tell; the details are not reported.
        if (answer.isHttpResponse() && answer.status == 200) {
            try {
                supported = SupportedVersions::parse(answer.body).version(game);
            } catch (const std::exception &) {
            }
        }
        installed.then(this, [promise, supported](const std::optional<GameVersion> &version) {
            promise->addResult(CompatibilityResult::evaluate(version, supported));
            promise->finish();
        });
    });
    return result;
}
