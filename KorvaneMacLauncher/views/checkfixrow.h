#pragma once

#include "core/launchissue.h"

#include <QWidget>

class QLabel;
class QPushButton;
class LauncherModel;

// One row of the readiness checklist, and for a failing row the one action that mends it, so a
// user never has to work out which button belongs to which problem. The settings page and the
// setup assistant both list their rows with it.
class CheckFixRow : public QWidget {
    Q_OBJECT

public:
    // What mends a failing row; `none` for a row that passes.
    enum class Fix { none, getCrossOver, chooseBottle, openSteam, chooseGameDirectory, reinstallLauncher };

    // `requirement`: the problem the row stands for (crossover, bottle, steam, game or cli).
    CheckFixRow(LauncherModel &model, LaunchIssue requirement, QWidget *parent = nullptr);

    void setCheck(const EnvironmentCheck &check);
    Fix fix() const { return m_fix; }
    static Fix fixFor(LaunchIssue requirement, bool ok);
    // The requirement each checklist row stands for, in the model's order of rows.
    static LaunchIssue requirementOfRow(qsizetype row);
    QPushButton *fixButton() const { return m_button; }

    // Rebuilds every row of `layoutHost` (a widget with a QVBoxLayout) from `checks`, the
    // model's checklist unless the caller words a row its own way.
    static void fill(QWidget *layoutHost, LauncherModel &model);
    static void fill(QWidget *layoutHost, LauncherModel &model, const QList<EnvironmentCheck> &checks);

Q_SIGNALS:
    // The row's action ran (the caller re-checks).
    void fixApplied();

private:
    void apply();
    void retranslate();

    LauncherModel &m_model;
    LaunchIssue m_requirement;
    Fix m_fix = Fix::none;
    QLabel *m_mark = nullptr;
    QLabel *m_title = nullptr;
    QLabel *m_detail = nullptr;
    QLabel *m_advice = nullptr;
    QPushButton *m_button = nullptr;
};
