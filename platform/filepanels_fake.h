#pragma once

#include "platform/filepanels.h"

#include <QList>
#include <QStringList>

// Panels that answer from a queue the test fills, and remember what they were asked.
class FakeFilePanels final : public FilePanels {
public:
    struct Request {
        QString kind; // "directory", "open" or "save"
        QString title;
        QString message; // the message, or the proposed file name of a save panel
        QString extension = {};
    };

    // The next answers, in order; an empty queue answers as a cancelled panel.
    QList<std::optional<QString>> answers;
    QList<Request> requests;

    // The save panels shown, as "proposed name|extension".
    QStringList saveRequests() const
    {
        QStringList shown;
        for (const Request &request : requests)
            if (request.kind == QStringLiteral("save"))
                shown.append(request.message + u'|' + request.extension);
        return shown;
    }

    std::optional<QString> chooseDirectory(const QString &title, const QString &message) override
    {
        return answer({QStringLiteral("directory"), title, message});
    }
    std::optional<QString> chooseFileToOpen(const QString &title, const QString &extension) override
    {
        return answer({QStringLiteral("open"), title, {}, extension});
    }
    std::optional<QString> chooseSaveLocation(const QString &title, const QString &proposedName,
                                              const QString &extension) override
    {
        return answer({QStringLiteral("save"), title, proposedName, extension});
    }

private:
    std::optional<QString> answer(Request request)
    {
        requests.append(std::move(request));
        return answers.isEmpty() ? std::nullopt : answers.takeFirst();
    }
};

class FakeConfirmationDialog final : public ConfirmationDialog {
public:
    struct Question {
        QString title, message, cancelButton, confirmButton;
    };
    bool answer = true;
    QList<Question> questions;

    bool confirm(const QString &title, const QString &message, const QString &cancelButton,
                 const QString &confirmButton) override
    {
        questions.append({title, message, cancelButton, confirmButton});
        return answer;
    }
};
