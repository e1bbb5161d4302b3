#pragma once

#include "KorvaneMacLauncher/views/viewkit.h"
#include "games/gamekind.h"

#include <QList>
#include <QWidget>

#include <functional>

class QLabel;
class QPushButton;
class QGridLayout;
class QVBoxLayout;
class AssistanceCard;
class CompatibilityBadge;
class GameSelectionCard;
class LauncherModel;

// The games page: both game cards, the launch panel, the readiness strip and the help for the
// current problem. The window decides what its buttons do.
class GamesPage : public QWidget {
    Q_OBJECT

public:
    explicit GamesPage(LauncherModel &model, QWidget *parent = nullptr);

    QPushButton *launchButton() const { return m_launch; }
    GameSelectionCard *card(GameKind game) const;
    AssistanceCard *assistance() const { return m_assistance; }
    // Where the favourite servers go.
    QVBoxLayout *extraArea() const { return m_extra; }
    // Refreshes what depends on the model, the language or the disk.
    void refresh(const std::function<bool(GameKind)> &isInstalled);
    void retranslate();

Q_SIGNALS:
    void launchClicked();
    void settingsRequested();
    void diagnosticsRequested();

private:
    void refreshStrip();

    LauncherModel &m_model;
    QLabel *m_heading;
    QLabel *m_subtitle;
    QList<GameSelectionCard *> m_cards;
    QLabel *m_gameName;
    QLabel *m_multiplayer;
    QLabel *m_status;
    QLabel *m_readiness;
    QPushButton *m_launch;
    QPushButton *m_settings;
    QPushButton *m_steam;
    CompatibilityBadge *m_badge;
    QGridLayout *m_strip;
    QList<ViewKit::OutlinedLabel *> m_stripBadges;
    QPushButton *m_details;
    AssistanceCard *m_assistance;
    QVBoxLayout *m_extra;
    QLabel *m_note;
};
