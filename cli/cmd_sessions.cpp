#include "cli/context.h"

#include "cli/modelsession.h"
#include "core/diagnosticsinput.h"
#include "platform/recordcoding.h"
#include "sessions/diagnosticprivacy.h"
#include "sessions/diagnosticsmodel.h"
#include "sessions/sessionactivity.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

// More than any log a user would pipe through; larger input is refused, not truncated.
constexpr qint64 maximumRedactInput = 64 * 1024 * 1024;

bool waitUntilIdle(const DiagnosticsModel &model)
{
    while (model.busy())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return true;
}

QString dateText(const std::optional<QDateTime> &date)
{
    return date ? date->toUTC().toString(Qt::ISODateWithMs) : u"-"_s;
}

QString sessionLine(const PlaySession &session)
{
    return RecordCoding::uuidText(session.id) + u"  "_s + session.game + u"  "_s + session.stage.rawValue()
        + u"  started "_s + dateText(session.started) + u"  loaded "_s + dateText(session.loaded) + u"  ended "_s
        + dateText(session.ended) + u"  retries "_s + QString::number(session.retries) + u"  errors "_s
        + QString::number(session.errors);
}

QJsonValue parsed(const std::optional<QByteArray> &json)
{
    if (!json)
        return QJsonValue::Null;
    const QJsonDocument document = QJsonDocument::fromJson(*json);
    return document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
}

} // namespace

int redactCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const QString home = takeOption(rest, u"--home"_s, &missing).value_or(context.paths.home);
    if (missing || !rest.isEmpty()) {
        context.err << "usage: korvanectl redact [--home PATH] < input > output\n";
        return 2;
    }
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly)) {
        context.err << "korvanectl: cannot read standard input: " << input.errorString() << '\n';
        return 1;
    }
    const QByteArray bytes = input.read(maximumRedactInput + 1);
    if (bytes.size() > maximumRedactInput) {
        context.err << "korvanectl: input larger than " << maximumRedactInput << " bytes; nothing written\n";
        return 1;
    }
    context.out << DiagnosticPrivacy::redact(QString::fromUtf8(bytes), home);
    return 0;
}

int tailCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto maximumText = takeOption(rest, u"--max"_s, &missing);
    bool valid = true;
    const qint64 maximum = maximumText ? maximumText->toLongLong(&valid) : DiagnosticPrivacy::defaultTailBytes;
    if (missing || !valid || maximum < 0 || rest.size() != 1) {
        context.err << "usage: korvanectl tail FILE [--max BYTES]\n";
        return 2;
    }
    const auto text = DiagnosticPrivacy::readTail(rest.first(), maximum);
    if (!text) {
        context.err << "korvanectl: " << rest.first() << ": not a readable regular file\n";
        context.out << DiagnosticPrivacy::unavailable << '\n';
        return 1;
    }
    context.out << *text;
    return 0;
}

int diagnosticsCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    bool missing = false;
    const auto output = takeOption(rest, u"-o"_s, &missing);
    const bool print = takeSwitch(rest, u"--print"_s);
    if (missing || !rest.isEmpty() || (!output && !print)) {
        context.err << "usage: korvanectl diagnostics [-o FILE.zip] [--print]\n";
        return 2;
    }

    // The same model the window shows; its play sessions stay apart from the running launcher's.
    ModelSession session(context);
    if (output)
        session.panels.path = QFileInfo(*output).absoluteFilePath();
    DiagnosticsModel model(session.panels, nullptr, context.paths.temporary);
    model.prepare(diagnosticsInput(*session.model));
    waitUntilIdle(model);
    if (print)
        context.out << model.preview();
    if (!output)
        return 0;
    model.exportArchive();
    waitUntilIdle(model);
    const bool saved = model.result() && model.result()->key == u"diagnostics.saved"_s;
    context.err << (model.result() ? model.result()->text() : QString()) << '\n';
    return saved ? 0 : 1;
}

int sessionsCommand(CliContext &context, const QStringList &arguments)
{
    QStringList rest = arguments;
    const bool json = takeSwitch(rest, u"--json"_s);
    if (!rest.isEmpty()) {
        context.err << "usage: korvanectl sessions [--json]\n";
        return 2;
    }
    // Read as stored: opening a SessionActivity would close a session the running launcher
    // still has open.
    const SessionActivity::Stored stored = SessionActivity::readStored(*context.defaults);

    if (json) {
        QJsonArray history;
        for (const PlaySession &session : stored.history)
            history.append(parsed(session.toJson()));
        const QJsonObject object{
            {u"keepHistory"_s, stored.keepHistory},
            {u"current"_s, parsed(stored.active ? stored.active->toJson() : std::nullopt)},
            {u"latest"_s, parsed(stored.latest ? stored.latest->toJson() : std::nullopt)},
            {u"history"_s, history},
            {u"failure"_s, parsed(stored.failure ? stored.failure->toJson() : std::nullopt)},
        };
        context.out << QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Indented));
        return 0;
    }

    context.out << "keep history: " << (stored.keepHistory ? "yes" : "no") << '\n';
    context.out << "current: " << (stored.active ? sessionLine(*stored.active) : u"none"_s) << '\n';
    context.out << "latest: " << (stored.latest ? sessionLine(*stored.latest) : u"none"_s) << '\n';
    context.out << "history: " << stored.history.size() << '\n';
    for (const PlaySession &session : stored.history)
        context.out << "  " << sessionLine(session) << '\n';
    if (!stored.failure) {
        context.out << "failure report: none\n";
        return 0;
    }
    const FailureReport &report = *stored.failure;
    context.out << "failure report: " << RecordCoding::uuidText(report.id) << "  " << dateText(report.date) << "  "
                << report.game << "  " << report.stage.rawValue() << "  " << report.reason << '\n'
                << report.text << '\n';
    return 0;
}
