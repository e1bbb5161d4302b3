#pragma once

#include "core/launchissue.h"
#include "games/compatibilityservice.h"
#include "games/gamekind.h"
#include "KorvaneMacLauncher/views/viewkit.h"

#include <QAbstractButton>
#include <QDialog>
#include <QEnterEvent>
#include <QFrame>
#include <QLabel>
#include <QWidget>

#include <optional>

class QPushButton;
class LauncherModel;

// Our own drawing of a game: a road to the horizon under the game's sky (European dusk for
// ETS2, desert noon for ATS) and a cab-over or long-nose truck silhouette. No game or vendor
// imagery.
class GameArtwork : public QWidget {
    Q_OBJECT

public:
    explicit GameArtwork(GameKind game, QWidget *parent = nullptr);
    QSize sizeHint() const override { return {320, 150}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    GameKind m_game;
};

// One game to choose: its artwork, its name and whether it is installed.
class GameSelectionCard : public QAbstractButton {
    Q_OBJECT

public:
    explicit GameSelectionCard(GameKind game, QWidget *parent = nullptr);
    GameKind game() const { return m_game; }
    void setSelected(bool selected);
    bool selected() const { return m_selected; }
    void setInstalled(bool installed);
    bool installed() const { return m_installed; }
    void retranslate();
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    GameKind m_game;
    bool m_selected = false;
    bool m_installed = false;
    bool m_hover = false;
    GameArtwork *m_artwork;
    QLabel *m_name;
    QLabel *m_state;
};

// The version check's answer as a coloured badge.
class CompatibilityBadge : public ViewKit::OutlinedLabel {
    Q_OBJECT

public:
    explicit CompatibilityBadge(QWidget *parent = nullptr);
    void setResult(const std::optional<CompatibilityResult> &result);
};

// The question asked when the installed version is not known to be supported: launch anyway,
// or not. Any other way of closing it counts as "not".
class CompatibilityPrompt : public QDialog {
    Q_OBJECT

public:
    CompatibilityPrompt(LauncherModel &model, QWidget *parent = nullptr);
    QPushButton *launchAnywayButton() const { return m_anyway; }
    QPushButton *cancelButton() const { return m_cancel; }

private:
    LauncherModel &m_model;
    bool m_decided = false;
    QPushButton *m_anyway;
    QPushButton *m_cancel;
};

// The current launch problem explained, with the way to the microphone settings, the settings
// page and the diagnostics.
class AssistanceCard : public ViewKit::OutlinedFrame {
    Q_OBJECT

public:
    explicit AssistanceCard(QWidget *parent = nullptr);
    void setIssue(const std::optional<LaunchIssue> &issue);
    void retranslate();

Q_SIGNALS:
    void settingsRequested();
    void diagnosticsRequested();

private:
    std::optional<LaunchIssue> m_issue;
    QLabel *m_title;
    QLabel *m_detail;
    QPushButton *m_microphone;
    QPushButton *m_settings;
    QPushButton *m_diagnostics;
};
