// SPDX-License-Identifier: MIT
#include "release/publish/tree/decisions.h"

#include <QSet>
#include <QTest>

#include <functional>

namespace
{

const QString kOther = QStringLiteral("other");

/// Releases of these versions, oldest first, all rolled out to everybody.
ReleaseList Releases(const QStringList &versions)
{
    ReleaseList list;
    for (const QString &version : versions) {
        Release release;
        release.version = version;
        release.id = version + QStringLiteral(".zip");
        release.share = AllParts;
        list.releases.append(release);
    }
    return list;
}

/// The releases 1.0, 2.0 and 3.0 after @p change.
ReleaseList ThreeReleases(const std::function<void(QVector<Release> &)> &change)
{
    ReleaseList list =
        Releases({QStringLiteral("1.0"), QStringLiteral("2.0"), QStringLiteral("3.0")});
    change(list.releases);
    return list;
}

DecisionTable TableOf(const ReleaseList &list, const QString &versions)
{
    const Decisions decisions = Decide(list);
    return decisions.tables.value(decisions.everywhere.value(versions, -1));
}

/// The version that the service offers to clients with @p versions.
QString Offered(const ReleaseList &list, const QString &versions)
{
    const DecisionTable table = TableOf(list, versions);
    if (!table.byPart.isEmpty())
        return QStringLiteral("it depends");
    return table.rest < 0 ? QStringLiteral("none") : list.releases.at(table.rest).version;
}

QSet<int> PartsThatGet(const DecisionTable &table, int release)
{
    QSet<int> parts;
    for (int part = 0; part < AllParts; ++part) {
        if (table.byPart.value(part, table.rest) == release)
            parts.insert(part);
    }
    return parts;
}

using Change = std::function<void(QVector<Release> &)>;

} // namespace

Q_DECLARE_METATYPE(Change)

class TestDecisions : public QObject
{
    Q_OBJECT

private slots:
    void whoIsOfferedWhat_data();
    void whoIsOfferedWhat();
    void shareHoldsSoManyParts_data();
    void shareHoldsSoManyParts();
    void raisingTheShareKeepsWhoIsIn();
    void eachReleaseDrawsItsOwnClients();
    void theRestGetsTheNewestForEverybody();
    void networksAreOfferedItWhateverTheShare();
    void narrowerNetworkBelongsToTheWiderOne();
    void tablesAreSharedAndComplete();
    void nothingNewerIsAnAnswerToo();
};

void TestDecisions::whoIsOfferedWhat_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("to1");
    QTest::addColumn<QString>("to2");
    QTest::addColumn<QString>("to3");
    QTest::addColumn<QString>("toOther");
    const auto row = [](const char *name, const char *to1, const char *to2, const char *to3,
                        const char *toOther, const Change &change) {
        QTest::newRow(name) << change << QString::fromLatin1(to1) << QString::fromLatin1(to2)
                            << QString::fromLatin1(to3) << QString::fromLatin1(toOther);
    };
    row("all for everybody", "3.0", "3.0", "none", "3.0", [](QVector<Release> &) {});
    row("newest is published only", "2.0", "none", "none", "2.0",
        [](QVector<Release> &all) { all[2].share = 0; });
    row("nothing is rolled out", "none", "none", "none", "none", [](QVector<Release> &all) {
        for (Release &release : all)
            release.share = 0;
    });
    row("newest is stopped", "2.0", "none", "none", "2.0",
        [](QVector<Release> &all) { all[2].isStopped = true; });
    row("one in between is stopped", "3.0", "3.0", "none", "3.0",
        [](QVector<Release> &all) { all[1].isStopped = true; });
    row("newest is rolled back", "2.0", "none", "none", "2.0",
        [](QVector<Release> &all) { all[2].isWithdrawn = true; });
    row("newest is rolled back with downgrade", "2.0", "none", "2.0", "2.0",
        [](QVector<Release> &all) {
            all[2].isWithdrawn = true;
            all[2].offersPrevious = true;
        });
    row("downgrade skips what is withdrawn as well", "none", "1.0", "1.0", "1.0",
        [](QVector<Release> &all) {
            all[1].isWithdrawn = true;
            all[1].offersPrevious = true;
            all[2].isWithdrawn = true;
            all[2].offersPrevious = true;
        });
    row("a newer release instead of the downgrade", "3.0", "3.0", "none", "3.0",
        [](QVector<Release> &all) {
            all[1].isWithdrawn = true;
            all[1].offersPrevious = true;
        });
    row("nothing to go back to", "none", "none", "none", "none", [](QVector<Release> &all) {
        all[0].isWithdrawn = true;
        all[0].offersPrevious = true;
        all[1].share = 0;
        all[2].share = 0;
    });
    row("only from one version", "2.0", "3.0", "none", "2.0",
        [](QVector<Release> &all) { all[2].from = QStringList(QStringLiteral("2.0")); });
    row("only from the beginning of one", "3.0", "none", "none", "2.0",
        [](QVector<Release> &all) { all[2].from = QStringList(QStringLiteral("1.*")); });
    row("a restricted one is not for everybody", "none", "none", "none", "1.0",
        [](QVector<Release> &all) {
            all[1].from = QStringList(QStringLiteral("9.*"));
            all[2].isWithdrawn = true;
        });
}

void TestDecisions::whoIsOfferedWhat()
{
    QFETCH(Change, change);
    const ReleaseList list = ThreeReleases(change);
    QTEST(Offered(list, QStringLiteral("is-1.0")), "to1");
    QTEST(Offered(list, QStringLiteral("is-2.0")), "to2");
    QTEST(Offered(list, QStringLiteral("is-3.0")), "to3");
    QTEST(Offered(list, kOther), "toOther");
}

void TestDecisions::shareHoldsSoManyParts_data()
{
    QTest::addColumn<int>("share");
    for (const int share : {1, 10, 125, 500, 999})
        QTest::newRow(qPrintable(ShareText(share))) << share;
}

void TestDecisions::shareHoldsSoManyParts()
{
    QFETCH(int, share);
    const ReleaseList list =
        ThreeReleases([share](QVector<Release> &all) { all[2].share = share; });
    QCOMPARE(PartsThatGet(TableOf(list, kOther), 2).size(), share);
    QCOMPARE(PartsThatGet(TableOf(list, kOther), 1).size(), AllParts - share);
}

void TestDecisions::raisingTheShareKeepsWhoIsIn()
{
    QSet<int> before;
    for (const int share : {1, 10, 100, 400, AllParts}) {
        const ReleaseList list =
            ThreeReleases([share](QVector<Release> &all) { all[2].share = share; });
        const QSet<int> now = PartsThatGet(TableOf(list, kOther), 2);
        QVERIFY(now.contains(before));
        before = now;
    }
}

void TestDecisions::eachReleaseDrawsItsOwnClients()
{
    const QSet<int> one = [] {
        const QVector<int> parts = PartsInOrder(QStringLiteral("2.1.3")).mid(0, 100);
        return QSet<int>(parts.cbegin(), parts.cend());
    }();
    const QVector<int> next = PartsInOrder(QStringLiteral("2.1.4"));
    QCOMPARE(QSet<int>(next.cbegin(), next.cend()).size(), AllParts);
    int common = 0;
    for (const int part : next.mid(0, 100))
        common += one.contains(part) ? 1 : 0;
    // Ten are expected, with a tolerance of three.
    QVERIFY2(common < 25, qPrintable(QString::number(common)));
}

void TestDecisions::theRestGetsTheNewestForEverybody()
{
    const ReleaseList list = ThreeReleases([](QVector<Release> &all) {
        all[1].share = 500;
        all[2].share = 100;
    });
    const DecisionTable table = TableOf(list, kOther);
    QCOMPARE(PartsThatGet(table, 2).size(), 100);
    const QSet<int> second = PartsThatGet(table, 1);
    const QVector<int> inSecond = PartsInOrder(QStringLiteral("2.0")).mid(0, 500);
    QVERIFY(QSet<int>(inSecond.cbegin(), inSecond.cend()).contains(second));
    QCOMPARE(PartsThatGet(table, 0).size(), AllParts - 100 - second.size());
    // Nobody is offered the installed version or an older one.
    QCOMPARE(PartsThatGet(TableOf(list, QStringLiteral("is-2.0")), 2).size(), 100);
    QCOMPARE(PartsThatGet(TableOf(list, QStringLiteral("is-2.0")), -1).size(), AllParts - 100);
}

void TestDecisions::networksAreOfferedItWhateverTheShare()
{
    const ReleaseList list = ThreeReleases([](QVector<Release> &all) {
        all[2].share = 1;
        all[2].networks = QStringList(QStringLiteral("192.0.2.0/23"));
        all[1].networks = QStringList(QStringLiteral("198.51.100.7"));
    });
    const Decisions decisions = Decide(list);
    QCOMPARE(decisions.networks.keys(),
             QStringList({QStringLiteral("192.0.2_24"), QStringLiteral("192.0.3_24"),
                          QStringLiteral("198.51.100.7_32")}));
    const Decisions::Place &place =
        decisions.places.at(decisions.networks.value(QStringLiteral("192.0.3_24")));
    const DecisionTable &office = decisions.tables.at(place.value(QStringLiteral("is-1.0")));
    QCOMPARE(office.rest, 2);
    QVERIFY(office.byPart.isEmpty());
    QCOMPARE(decisions.tables.at(place.value(QStringLiteral("is-3.0"))).rest, -1);
}

void TestDecisions::narrowerNetworkBelongsToTheWiderOne()
{
    const ReleaseList list = ThreeReleases([](QVector<Release> &all) {
        all[1].share = 1;
        all[2].share = 1;
        all[2].from = QStringList(QStringLiteral("9.*"));
        all[1].networks = QStringList(QStringLiteral("10.0.0.0/8"));
        all[2].networks = QStringList(QStringLiteral("10.1.0.0/16"));
    });
    const Decisions decisions = Decide(list);
    const Decisions::Place &place =
        decisions.places.at(decisions.networks.value(QStringLiteral("10.1_16")));
    QCOMPARE(decisions.tables.at(place.value(kOther)).rest, 1);
    QCOMPARE(decisions.tables.at(place.value(QStringLiteral("below-9"))).rest, 2);
}

void TestDecisions::tablesAreSharedAndComplete()
{
    const ReleaseList list = ThreeReleases([](QVector<Release> &all) {
        all[2].share = 10;
        all[2].from = QStringList({QStringLiteral("2.*"), QStringLiteral("2.0.*")});
    });
    const Decisions decisions = Decide(list);
    QCOMPARE(decisions.everywhere.keys(),
             QStringList({QStringLiteral("below-2"), QStringLiteral("below-2.0"),
                          QStringLiteral("is-1.0"), QStringLiteral("is-2.0"),
                          QStringLiteral("is-3.0"), kOther}));
    QCOMPARE(decisions.everywhere.value(QStringLiteral("below-2")),
             decisions.everywhere.value(QStringLiteral("below-2.0")));
    const QMap<QString, QString> links = DecisionLinks(list);
    QCOMPARE(links.value(QStringLiteral("everywhere/below-2")),
             links.value(QStringLiteral("everywhere/below-2.0")));
    QVERIFY(links.values().contains(QStringLiteral("../../../../answers/3.0/3.0.zip.json")));
}

void TestDecisions::nothingNewerIsAnAnswerToo()
{
    const ReleaseList list = ThreeReleases([](QVector<Release> &all) {
        for (Release &release : all)
            release.share = 0;
    });
    QCOMPARE(DecisionLinks(list).value(QStringLiteral("tables/0/rest")),
             QStringLiteral("../../../../none.json"));
}

QTEST_APPLESS_MAIN(TestDecisions)
#include "tst_decisions.moc"
