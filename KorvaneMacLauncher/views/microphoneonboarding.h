#pragma once

#include "platform/microphone.h"

#include <QUrl>
#include <QWidget>

#include <functional>

class LanguageSettings;
class QLabel;
class QPushButton;

// Explains why the launcher asks for the microphone (the client's CB radio runs inside
// CrossOver, and macOS asks the launcher) and obtains the permission, or sends the user to
// System Settings when it was refused.
class MicrophoneOnboarding : public QWidget {
    Q_OBJECT
public:
    // `openURL` opens the system's privacy settings; the desktop's URL handler by default.
    MicrophoneOnboarding(LanguageSettings &language, const Microphone &microphone,
                         std::function<void(const QUrl &)> openURL = {}, QWidget *parent = nullptr);

    static inline const QUrl privacySettingsURL{
        QStringLiteral("x-apple.systempreferences:com.apple.preference.security?Privacy_Microphone")};

    MicrophoneAuthorization authorization() const { return m_authorization; }
    bool requesting() const { return m_requesting; }

Q_SIGNALS:
    void finished();
    void later();

private:
    void primaryAction();
    void readStatus();
    void retranslate();

    LanguageSettings &m_language;
    const Microphone &m_microphone;
    std::function<void(const QUrl &)> m_openURL;
    MicrophoneAuthorization m_authorization;
    bool m_requesting = false;

    QLabel *m_heading, *m_status, *m_notes;
    QPushButton *m_primary, *m_later;
};
