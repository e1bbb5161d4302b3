#include "KorvaneMacLauncher/views/microphoneonboarding.h"

#include "KorvaneMacLauncher/views/viewkit.h"
#include "preferences/l10n.h"
#include "preferences/languagesettings.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;
using ViewKit::Role;

namespace {
// Restricted and denied read alike here: either way only System Settings can help.
bool refused(MicrophoneAuthorization status)
{
    return status == MicrophoneAuthorization::denied || status == MicrophoneAuthorization::restricted;
}
} // namespace

MicrophoneOnboarding::MicrophoneOnboarding(LanguageSettings &language, const Microphone &microphone,
                                           std::function<void(const QUrl &)> openURL, QWidget *parent)
    : QWidget(parent), m_language(language), m_microphone(microphone), m_openURL(std::move(openURL)),
      m_authorization(microphone.authorizationStatus())
{
    if (!m_openURL)
        m_openURL = [](const QUrl &url) { QDesktopServices::openUrl(url); };
    auto *layout = new QVBoxLayout(this);
    m_heading = ViewKit::label(Role::caption);
    m_status = ViewKit::label(Role::heading);
    m_notes = ViewKit::label();
    m_primary = new QPushButton;
    m_primary->setDefault(true);
    m_later = new QPushButton;
    layout->addWidget(m_heading);
    layout->addWidget(m_status);
    layout->addWidget(m_notes);
    layout->addStretch();
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_later);
    buttons->addStretch();
    buttons->addWidget(m_primary);
    layout->addLayout(buttons);

    connect(m_primary, &QPushButton::clicked, this, &MicrophoneOnboarding::primaryAction);
    connect(m_later, &QPushButton::clicked, this, &MicrophoneOnboarding::later);
    connect(&m_language, &LanguageSettings::languageChanged, this, &MicrophoneOnboarding::retranslate);
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state == Qt::ApplicationActive)
            readStatus();
    });
    retranslate();
}

void MicrophoneOnboarding::primaryAction()
{
    if (m_authorization == MicrophoneAuthorization::authorized) {
        Q_EMIT finished();
        return;
    }
    if (refused(m_authorization)) {
        m_openURL(privacySettingsURL);
        return;
    }
    if (m_requesting)
        return;
    m_requesting = true;
    retranslate();
    // The answer comes later on the main thread; the screen may be gone by then.
    m_microphone.requestAccess([self = QPointer(this)](bool) {
        if (!self)
            return;
        self->m_requesting = false;
        self->readStatus();
        if (self->m_authorization == MicrophoneAuthorization::authorized)
            Q_EMIT self->finished();
    });
}

void MicrophoneOnboarding::readStatus()
{
    m_authorization = m_microphone.authorizationStatus();
    retranslate();
}

void MicrophoneOnboarding::retranslate()
{
    m_heading->setText(L("MIKROFON"));
    switch (m_authorization) {
    case MicrophoneAuthorization::authorized:
        m_status->setText(L("A mikrofon készen áll."));
        break;
    case MicrophoneAuthorization::restricted:
        m_status->setText(L("A mikrofonhozzáférést rendszerkorlátozás tiltja. A játék indításához ezt előbb fel kell oldani."));
        break;
    case MicrophoneAuthorization::denied:
        m_status->setText(L("Engedélyezd a Korvane Mac Launcher mikrofonját az Adatvédelem és biztonság → Mikrofon alatt, majd indítsd újra a launchert, ha a macOS kéri."));
        break;
    case MicrophoneAuthorization::notDetermined:
        m_status->setText(L("A Korvane CB-rádiójához mikrofonhozzáférés szükséges. CrossOver alatt ezt a macOS a launchertől kéri."));
        break;
    }
    m_notes->setText(u"• "_s + L("Az engedélyt a játék betöltése előtt rendezzük.") + u"\n• "_s
                     + L("A launcher nem rögzít hangot.") + u"\n• "_s + L("Később a Rendszerbeállításokban módosítható."));
    const QString primary = m_authorization == MicrophoneAuthorization::authorized ? L("Kész")
                            : refused(m_authorization)                             ? L("Rendszerbeállítások")
                                                                                   : L("Mikrofon engedélyezése");
    ViewKit::setText(m_primary, primary);
    m_primary->setEnabled(!m_requesting);
    ViewKit::setText(m_later, L("Most nem"));
}
