// The servers page, the favourites panel and the star, over a list fetched from a local service.
#include "KorvaneMacLauncher/views/serverviews.h"
#include "KorvaneMacLauncher/views/viewkit.h"
#include "preferences/languagesettings.h"
#include "support/httpsserver.h"
#include "support/launcherrig.h"
#include "support/viewprobe.h"

#include <QComboBox>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace ViewProbe;

namespace {

QByteArray answer(const QList<std::pair<qint64, QString>> &servers)
{
    QJsonArray list;
    for (const auto &[id, game] : servers)
        list.append(QJsonObject{{u"id"_s, id}, {u"game"_s, game}, {u"name"_s, u"Server %1"_s.arg(id)},
                                {u"online"_s, true}, {u"players"_s, 1234}, {u"queue"_s, 5}, {u"maxplayers"_s, 4200}});
    return QJsonDocument(QJsonObject{{u"error"_s, false}, {u"response"_s, list}}).toJson(QJsonDocument::Compact);
}

QStringList rowsOf(QWidget &view)
{
    QStringList ids;
    for (QWidget *row : view.findChildren<QWidget *>(QRegularExpression(u"^server-"_s)))
        ids.append(row->objectName().mid(7));
    return ids;
}


FavoriteButton *star(QWidget &view, qint64 id)
{
    auto *row = view.findChild<QWidget *>(u"server-"_s + QString::number(id));
    return row ? row->findChild<FavoriteButton *>() : nullptr;
}


// A launcher, its language and a server list over a local service that lists two ETS2 servers
// and one ATS server.
struct Rig {
    LauncherRig launcher;
    LauncherModel &model = launcher.start();
    LanguageSettings language{*launcher.home.defaults};
    LocalHttpsServer service;
    ServerListModel list{*launcher.home.defaults, launcher.clock, service.configuration()};

    Rig() { service.respond(u"/v2/servers"_s, ScriptedResponse::json(answer({{1, u"ETS2"_s}, {3, u"ATS"_s}, {2, u"ETS2"_s}}))); }

    void refreshAndWait()
    {
        list.refresh();
        QTRY_VERIFY_WITH_TIMEOUT(!list.loading(), 20'000);
    }
};

} // namespace

class TestServerViews : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void onlyTheSelectedGamesServers_data()
    {
        QTest::addColumn<GameKind>("game");
        QTest::addColumn<QStringList>("rows");
        QTest::newRow("ETS2") << GameKind(GameKind::ets2) << QStringList{u"1"_s, u"2"_s};
        QTest::newRow("ATS") << GameKind(GameKind::ats) << QStringList{u"3"_s};
    }
    void onlyTheSelectedGamesServers()
    {
        QFETCH(GameKind, game);
        QFETCH(QStringList, rows);
        Rig rig;
        rig.list.replaceFavorites({1, 2, 3});
        ServersView page(rig.list, rig.model, rig.language);
        FavoriteServersView panel(rig.list, rig.model, rig.language);
        QVERIFY(shows(panel, L("favorites.unavailable")));
        rig.refreshAndWait();
        rig.model.setGame(game);
        QCOMPARE(rowsOf(page), rows);
        QCOMPARE(rowsOf(panel), rows);
        QVERIFY(shows(page, u"1234 / 4200"_s));
        QVERIFY(shows(page, L("servers.queue", 5)));
        QVERIFY(shows(page, L("servers.online")));
        QVERIFY(!shows(panel, L("favorites.unavailable")));
    }

    void failedRefreshKeepsRowsAsStale()
    {
        Rig rig;
        ServersView page(rig.list, rig.model, rig.language);
        rig.refreshAndWait();
        QVERIFY(!shows(page, L("servers.error")));
        rig.service.respond(u"/v2/servers"_s, ScriptedResponse::json("{}", 500));
        rig.launcher.clock.advance(ServerListModel::staleMilliseconds + 1);
        rig.refreshAndWait();
        QCOMPARE(rowsOf(page), (QStringList{u"1"_s, u"2"_s}));
        QVERIFY(shows(page, L("servers.error")));
        QVERIFY(!shows(page, L("servers.empty")));
        const auto statuses = page.findChildren<QLabel *>(u"status"_s);
        QCOMPARE(statuses.size(), 2);
        for (QLabel *status : statuses)
            QCOMPARE(status->text(), L("servers.stale"));
    }

    void emptyOrUnavailableFavorites_data()
    {
        QTest::addColumn<QList<qint64>>("favorites");
        QTest::addColumn<QString>("line");
        QTest::newRow("none") << QList<qint64>{} << u"favorites.empty"_s;
        QTest::newRow("not in the list") << QList<qint64>{7} << u"favorites.unavailable"_s;
    }
    void emptyOrUnavailableFavorites()
    {
        QFETCH(QList<qint64>, favorites);
        QFETCH(QString, line);
        Rig rig;
        rig.list.replaceFavorites(favorites);
        rig.refreshAndWait();
        FavoriteServersView panel(rig.list, rig.model, rig.language);
        QVERIFY(rowsOf(panel).isEmpty());
        QVERIFY(shows(panel, L(line)));
        QSignalSpy manage(&panel, &FavoriteServersView::openServersRequested);
        QTest::mouseClick(panel.findChild<QPushButton *>(), Qt::LeftButton);
        QCOMPARE(manage.size(), 1);
    }

    void starRespectsTheLimit()
    {
        Rig rig;
        QList<qint64> hundred{2};
        for (qint64 id = 100; hundred.size() < ServerListModel::maximumFavorites; ++id)
            hundred.append(id);
        rig.list.replaceFavorites(hundred);
        rig.refreshAndWait();
        ServersView page(rig.list, rig.model, rig.language);
        QCOMPARE(star(page, 1)->accessibleName(), L("favorites.add", u"Server 1"_s));
        QTest::mouseClick(star(page, 1), Qt::LeftButton);
        QVERIFY(!rig.list.isFavorite(1));
        QCOMPARE(star(page, 2)->accessibleName(), L("favorites.remove", u"Server 2"_s));
        QTest::mouseClick(star(page, 2), Qt::LeftButton);
        QVERIFY(!rig.list.isFavorite(2));
        QCOMPARE(star(page, 2)->text(), u"☆"_s);
        QTest::mouseClick(star(page, 1), Qt::LeftButton);
        QVERIFY(rig.list.isFavorite(1));
    }

    void pickerChoosesTheLaunchersGame()
    {
        Rig rig;
        ServersView page(rig.list, rig.model, rig.language);
        auto *picker = page.findChild<QComboBox *>();
        QCOMPARE(picker->currentText(), GameKind(GameKind::ets2).rawValue());
        QTest::keyClick(picker, Qt::Key_Down);
        QCOMPARE(rig.model.game(), GameKind(GameKind::ats));
        rig.model.setGame(GameKind::ets2);
        QCOMPARE(picker->currentText(), GameKind(GameKind::ets2).rawValue());
    }

    void refreshesWhileShownAndActive()
    {
        Rig rig;
        FavoriteServersView panel(rig.list, rig.model, rig.language);
        panel.refreshLoop().setInterval(std::chrono::milliseconds(20));
        Q_EMIT qApp->applicationStateChanged(Qt::ApplicationInactive);
        panel.show();
        QVERIFY(!panel.refreshLoop().running());
        QCOMPARE(rig.service.requestCount(u"/v2/servers"_s), 0);
        becomeActive();
        QVERIFY(panel.refreshLoop().running());
        QTRY_COMPARE_WITH_TIMEOUT(rig.service.requestCount(u"/v2/servers"_s), 1, 20'000);
        QTRY_VERIFY_WITH_TIMEOUT(!rig.list.loading(), 20'000);
        // The next tick after the list's minute has passed fetches again.
        rig.launcher.clock.advance(ServerListModel::throttleMilliseconds);
        QTRY_COMPARE_WITH_TIMEOUT(rig.service.requestCount(u"/v2/servers"_s), 2, 20'000);
        panel.hide();
        QVERIFY(!panel.refreshLoop().running());
        panel.show();
        Q_EMIT qApp->applicationStateChanged(Qt::ApplicationInactive);
        QVERIFY(!panel.refreshLoop().running());
    }
};

QTEST_MAIN(TestServerViews)
#include "tst_views_servers.moc"
