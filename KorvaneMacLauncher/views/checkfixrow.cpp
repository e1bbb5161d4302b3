#include "KorvaneMacLauncher/views/checkfixrow.h"

#include "KorvaneMacLauncher/views/viewkit.h"
#include "core/launchermodel.h"
#include "preferences/l10n.h"

#include <QDesktopServices>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {
// CrossOver's own download page: the launcher cannot install it, only point the way.
const QUrl crossOverDownload(u"https://www.codeweavers.com/crossover"_s);
} // namespace

CheckFixRow::CheckFixRow(LauncherModel &model, LaunchIssue requirement, QWidget *parent)
    : QWidget(parent), m_model(model), m_requirement(requirement)
{
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 2, 0, 2);
    m_mark = new QLabel(this);
    m_mark->setFixedWidth(22);
    m_mark->setAlignment(Qt::AlignTop | Qt::AlignHCenter);
    auto *texts = new QVBoxLayout;
    m_title = new QLabel(this);
    ViewKit::setFontStyle(m_title, 0, QFont::DemiBold);
    m_detail = new QLabel(this);
    m_detail->setWordWrap(true);
    m_advice = new QLabel(this);
    m_advice->setWordWrap(true);
    ViewKit::setTextColor(m_advice, QColor(0x5f, 0x63, 0x68));
    texts->addWidget(m_title);
    texts->addWidget(m_detail);
    texts->addWidget(m_advice);
    m_button = new QPushButton(this);
    row->addWidget(m_mark);
    row->addLayout(texts, 1);
    row->addWidget(m_button, 0, Qt::AlignTop);
    connect(m_button, &QPushButton::clicked, this, &CheckFixRow::apply);
}

CheckFixRow::Fix CheckFixRow::fixFor(LaunchIssue requirement, bool ok)
{
    if (ok)
        return Fix::none;
    switch (LaunchIssue::Value(requirement)) {
    case LaunchIssue::crossover: return Fix::getCrossOver;
    case LaunchIssue::bottle: return Fix::chooseBottle;
    case LaunchIssue::steam: return Fix::openSteam;
    case LaunchIssue::game: return Fix::chooseGameDirectory;
    case LaunchIssue::cli: return Fix::reinstallLauncher;
    default: return Fix::none;
    }
}

LaunchIssue CheckFixRow::requirementOfRow(qsizetype row)
{
    static constexpr LaunchIssue::Value rows[]
        = {LaunchIssue::crossover, LaunchIssue::bottle, LaunchIssue::steam, LaunchIssue::game, LaunchIssue::cli};
    return row >= 0 && row < qsizetype(std::size(rows)) ? rows[row] : LaunchIssue::unexpected;
}

void CheckFixRow::setCheck(const EnvironmentCheck &check)
{
    m_fix = fixFor(m_requirement, check.ok);
    m_mark->setText(check.ok ? u"✓"_s : u"✕"_s);
    ViewKit::setTextColor(m_mark, check.ok ? QColor(0x2e, 0x9d, 0x57) : QColor(0xd1, 0x3a, 0x30));
    ViewKit::setFontStyle(m_mark, 0, QFont::Bold);
    m_title->setText(check.title);
    m_detail->setText(check.detail);
    setAccessibleName(check.title + u": "_s + check.detail);
    retranslate();
}

void CheckFixRow::retranslate()
{
    const char *key = nullptr;
    const char *advice = nullptr;
    switch (m_fix) {
    case Fix::none: break;
    case Fix::getCrossOver: key = "fix.crossover"; advice = "help.crossover.detail"; break;
    case Fix::chooseBottle: key = "fix.bottle"; advice = "help.bottle.detail"; break;
    case Fix::openSteam: key = "fix.steam"; advice = "help.steam.detail"; break;
    case Fix::chooseGameDirectory: key = "fix.game"; advice = "help.game.detail"; break;
    case Fix::reinstallLauncher: key = "fix.cli"; advice = "fix.cli.detail"; break;
    }
    m_button->setVisible(key != nullptr);
    m_advice->setVisible(advice != nullptr);
    if (key) {
        m_button->setText(L(key));
        m_button->setAccessibleName(L(key) + u" – "_s + m_title->text());
        m_advice->setText(L(advice));
    }
}

void CheckFixRow::apply()
{
    switch (m_fix) {
    case Fix::none: return;
    case Fix::getCrossOver: QDesktopServices::openUrl(crossOverDownload); break;
    case Fix::chooseBottle: m_model.chooseBottle(); break;
    case Fix::openSteam: m_model.openSteam(); break;
    case Fix::chooseGameDirectory: m_model.chooseGameDirectory(); break;
    // Nothing in the launcher can mend its own damaged files; the folder shows what is there
    // and the advice says to download the launcher again.
    case Fix::reinstallLauncher:
        if (const auto directory = m_model.cliDirectory())
            QDesktopServices::openUrl(QUrl::fromLocalFile(*directory));
        break;
    }
    m_model.refreshStatus();
    Q_EMIT fixApplied();
}

void CheckFixRow::fill(QWidget *layoutHost, LauncherModel &model)
{
    fill(layoutHost, model, model.checks());
}

void CheckFixRow::fill(QWidget *layoutHost, LauncherModel &model, const QList<EnvironmentCheck> &checks)
{
    auto *layout = qobject_cast<QVBoxLayout *>(layoutHost->layout());
    if (!layout)
        return;
    QList<CheckFixRow *> rows = layoutHost->findChildren<CheckFixRow *>(Qt::FindDirectChildrenOnly);
    for (qsizetype index = rows.size(); index < checks.size(); ++index) {
        auto *row = new CheckFixRow(model, requirementOfRow(index), layoutHost);
        layout->addWidget(row);
        rows.append(row);
    }
    for (qsizetype index = 0; index < rows.size(); ++index) {
        rows.at(index)->setVisible(index < checks.size());
        if (index < checks.size())
            rows.at(index)->setCheck(checks.at(index));
    }
}
