#pragma once

#include <QObject>
#include <QString>

// The console text of the launcher: what the client prints and what the launcher says about a
// launch. Kept bounded while it is written (once it reaches `limit` characters only the last
// `keptLength` stay), and every appended piece is reported on its own, so that a view adds the
// new text instead of taking the whole log again.
class ConsoleLog : public QObject {
    Q_OBJECT

public:
    static constexpr qsizetype limit = 200'001;
    static constexpr qsizetype keptLength = 150'000;

    using QObject::QObject;

    const QString &text() const { return m_text; }
    void append(const QString &piece);
    // Replaces the whole text (a new launch's header, clearing).
    void replace(const QString &text);

Q_SIGNALS:
    // `piece` was added at the end, and then `removed` characters were cut from the start to
    // keep the bound (0 almost always).
    void appended(const QString &piece, qsizetype removed);
    void replaced();

private:
    QString m_text;
};
