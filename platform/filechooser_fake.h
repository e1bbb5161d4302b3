#pragma once

#include "platform/filechooser.h"

#include <QStringList>

// Answers every save panel with `answer` (nothing: the user cancels) and records what was
// asked and revealed.
class FakeFileChooser final : public FileChooser {
public:
    std::optional<QString> chooseSaveLocation(const QString &proposedName, const QString &extension) override
    {
        requests.append(proposedName + u'|' + extension);
        return answer;
    }
    void reveal(const QString &path) override { revealed.append(path); }

    std::optional<QString> answer;
    // "name|extension" per panel shown.
    QStringList requests;
    QStringList revealed;
};
