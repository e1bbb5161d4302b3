#pragma once

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include <algorithm>

// Finding what a view shows, as a user would: by the visible text.
namespace ViewProbe {

// The visible button of `view` that reads `text`; null when there is none.
inline QPushButton *button(QWidget &view, const QString &text)
{
    for (QPushButton *each : view.findChildren<QPushButton *>())
        if (each->text() == text && each->isVisibleTo(&view))
            return each;
    return nullptr;
}

// Whether a visible label of `view` contains `text`.
inline bool shows(QWidget &view, const QString &text)
{
    const auto labels = view.findChildren<QLabel *>();
    return std::ranges::any_of(labels, [&](QLabel *label) {
        return label->text().contains(text) && label->isVisibleTo(&view);
    });
}

// The launcher comes back to the front, as after a visit to System Settings.
inline void becomeActive()
{
    Q_EMIT qApp->applicationStateChanged(Qt::ApplicationInactive);
    Q_EMIT qApp->applicationStateChanged(Qt::ApplicationActive);
}

} // namespace ViewProbe
