#pragma once

#include "games/gameprofile.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <exception>

// Why a settings document was not read or applied.
class SettingsTransferError : public std::exception {
public:
    enum Code {
        fileReadTooLarge,    // over the size cap; not parsed at all
        fileReadCorruptFile, // well-formed, but breaks a rule of the document
        dataCorrupted,       // not JSON, a member missing or of the wrong type
        userCancelled,       // refused: the launcher is busy with a launch, an update or the setup
    };

    explicit SettingsTransferError(Code code, QString detail = {}) : m_code(code), m_detail(std::move(detail)) {}
    Code code() const { return m_code; }
    // What was wrong, for korvanectl and the log; empty for the rule violations.
    QString detail() const { return m_detail; }
    const char *what() const noexcept override;

private:
    Code m_code;
    QString m_detail;
};

// The launcher's settings as one JSON document, to move them to another machine or back: the
// interface language, the selected game, both games' profiles and the favourite servers.
struct SettingsTransfer {
    qint64 schema = 1;
    QString language;
    QString game;
    QMap<QString, GameProfile> profiles; // keyed by game raw value
    QList<qint64> favorites;             // ascending

    static constexpr qint64 maximumSize = 64'000;
    static constexpr qsizetype maximumFavorites = 100;
    static inline const QString defaultFileName = QStringLiteral("Korvane-Settings.json");

    // The document in these bytes, validated. Throws SettingsTransferError.
    static SettingsTransfer decode(const QByteArray &data);
    // Throws SettingsTransferError(fileReadCorruptFile) when a rule is broken.
    void validate() const;
    // "<game>: <what>" for every bottle and game directory of the document that is not there on
    // this machine, in game order. Informational: such a document can still be applied.
    QStringList missingPaths() const;

    // Pretty-printed for a file the user keeps, compact for the automatic backups; keys sorted.
    QByteArray encoded(bool pretty) const;

    bool operator==(const SettingsTransfer &) const = default;
};
