#pragma once

#include "sessions/launchstage.h"
#include "sessions/playsession.h"

#include <QByteArray>
#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QUuid>
#include <QVariantMap>

#include <optional>

class FilePanels;
struct LocalizedMessage;

// The redacted account of one failed attempt that the user can read, edit, export or send.
struct FailureReport {
    QUuid id;
    QDateTime date;
    // Raw value of the game played.
    QString game;
    // The stage the attempt had reached when the report was made.
    LaunchStage stage = LaunchStage::checking;
    // "unexpected" when none was given, "user_reported_problem" when the user asked for one.
    QString reason;
    // Already redacted.
    QString text;

    // What the report text says about the system it was made on. Injected so that a report
    // made in a test does not depend on the machine.
    struct Environment {
        // The user's home directory, redacted away from the text.
        QString home;
        // The application's information dictionary ("CFBundleShortVersionString").
        QVariantMap bundleInfo;
        // The operating system's human-readable version.
        QString operatingSystem;

        // The running user's and application's.
        static Environment current();
    };

    // The report text before redaction: ten header lines, then the attempt's log unchanged.
    static QString composeText(const PlaySession &session, const QString &reason, const QString &log,
                               const Environment &environment);
    // A new report (new id, `date`) over the redacted text of `session`.
    static FailureReport make(const PlaySession &session, const QString &reason, const QString &log,
                              const Environment &environment, const QDateTime &date);

    // Stored form: keys id, date, game, stage, reason, text, all required.
    std::optional<QByteArray> toJson() const;
    static std::optional<FailureReport> fromJson(const QByteArray &json);

    // The report screen's export: asks `panels` for a destination (proposing
    // "Korvane-Failure.zip") and saves `text` there as a diagnostics archive, synchronously.
    // Nothing when the user cancelled; otherwise "diagnostics.saved" or "diagnostics.failed".
    static std::optional<LocalizedMessage> exportText(const QString &text, FilePanels &panels,
                                                      const QString &temporaryDirectory);

    static inline const QString exportFileName = QStringLiteral("Korvane-Failure.zip");

    bool operator==(const FailureReport &) const = default;
};

Q_DECLARE_METATYPE(FailureReport)
