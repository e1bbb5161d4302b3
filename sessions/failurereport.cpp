#include "sessions/failurereport.h"

#include "platform/bundleinfo.h"
#include "platform/filepanels.h"
#include "platform/paths.h"
#include "platform/recordcoding.h"
#include "platform/systeminfo.h"
#include "preferences/l10n.h"
#include "sessions/diagnosticarchive.h"
#include "sessions/diagnosticprivacy.h"

#include <QJsonObject>

using namespace Qt::StringLiterals;

FailureReport::Environment FailureReport::Environment::current()
{
    return {Paths::system().home, BundleInfo::main(), SystemInfo::operatingSystemVersion()};
}

QString FailureReport::composeText(const PlaySession &session, const QString &reason, const QString &log,
                                   const Environment &environment)
{
    const QVariant version = environment.bundleInfo.value(BundleInfo::shortVersionKey);
    const QString versionText = version.typeId() == QMetaType::QString ? version.toString() : u"development"_s;
    return u"Korvane Mac Launcher \u2014 failure report\n"_s
        + u"Version: "_s + versionText + u'\n'
        + u"Game: "_s + session.game + u'\n'
        + u"Stage: "_s + session.stage.rawValue() + u'\n'
        + u"Reason: "_s + reason + u'\n'
        + u"Retries: "_s + QString::number(session.retries) + u'\n'
        + u"macOS: "_s + environment.operatingSystem + u'\n'
        + u"Graphics: D3DMetal + MSync / DX11\n"_s
        + u'\n'
        + u"--- Current attempt log (bounded, redacted) ---\n"_s
        + log;
}

FailureReport FailureReport::make(const PlaySession &session, const QString &reason, const QString &log,
                                  const Environment &environment, const QDateTime &date)
{
    FailureReport report;
    report.id = QUuid::createUuid();
    report.date = date;
    report.game = session.game;
    report.stage = session.stage;
    report.reason = reason;
    report.text = DiagnosticPrivacy::redact(composeText(session, reason, log, environment), environment.home);
    return report;
}

std::optional<QByteArray> FailureReport::toJson() const
{
    const auto seconds = RecordCoding::referenceSeconds(date);
    if (!seconds)
        return std::nullopt;
    return RecordCoding::orderedObject({
        {u"id"_s, RecordCoding::uuidText(id)},
        {u"date"_s, *seconds},
        {u"game"_s, game},
        {u"stage"_s, stage.rawValue()},
        {u"reason"_s, reason},
        {u"text"_s, text},
    });
}

std::optional<FailureReport> FailureReport::fromJson(const QByteArray &json)
{
    const auto parsed = RecordCoding::parseObject(json);
    if (!parsed)
        return std::nullopt;
    const QJsonObject &object = *parsed;
    const auto id = RecordCoding::uuidFromText(object.value(u"id"_s).toString());
    const QJsonValue date = object.value(u"date"_s);
    const auto when = date.isDouble() ? RecordCoding::dateFromReferenceSeconds(date.toDouble()) : std::nullopt;
    const QJsonValue game = object.value(u"game"_s);
    const auto stage = LaunchStage::fromRawValue(object.value(u"stage"_s).toString());
    const QJsonValue reason = object.value(u"reason"_s);
    const QJsonValue text = object.value(u"text"_s);
    if (!id || !when || !game.isString() || !stage || !reason.isString() || !text.isString())
        return std::nullopt;
    return FailureReport{*id, *when, game.toString(), *stage, reason.toString(), text.toString()};
}

std::optional<LocalizedMessage> FailureReport::exportText(const QString &text, FilePanels &panels,
                                                          const QString &temporaryDirectory)
{
    const auto destination = panels.chooseSaveLocation(L("diagnostics.save"), exportFileName, u"zip"_s);
    if (!destination)
        return std::nullopt;
    try {
        DiagnosticArchive::save(text, *destination, temporaryDirectory);
    } catch (const DiagnosticArchive::Error &) {
        return LocalizedMessage("diagnostics.failed");
    }
    return LocalizedMessage("diagnostics.saved");
}
