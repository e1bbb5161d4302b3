#pragma once

#include "KorvaneMacLauncher/windowservices.h"

#include <QPointer>

class QMenu;

// Window services that only count what was asked of them.
class FakeWindowServices final : public WindowServices {
public:
    using WindowServices::WindowServices;
    int hides = 0;
    int unhides = 0;
    int activations = 0;
    bool keepsRunning = true;
    QPointer<QMenu> menu;

    void hideApplication() override { ++hides; }
    void unhideApplication() override { ++unhides; }
    void activate(QWidget *) override { ++activations; }
    void installMenu(QMenu *installed) override { menu = installed; }
    bool keepsRunningWithoutWindow() const override { return keepsRunning; }
};
