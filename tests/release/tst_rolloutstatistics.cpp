// SPDX-License-Identifier: MIT
#include "release/publish/statistics/rolloutstatistics.h"

#include "release/publish/statistics/dailyseries.h"
#include "release/publish/statistics/logreport.h"
#include "tests/support/compression.h"
#include "tests/support/peakmemory.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

namespace
{

const QDateTime start = QDateTime::fromString(QStringLiteral("2026-11-21T10:00:00Z"), Qt::ISODate);

const char *const oldVersion = "2.1.2";
const char *const newVersion = "2.1.3";
const char *const oldPackage = "Client-2.1.2.zip";
const char *const newPackage = "Client-2.1.3.zip";

/// A line of a log of nginx. Times are in seconds after the start.
class Line
{
public:
    Line(int time, const char *address) : m_time(time), m_address(address) {}

    /// A check with the release in its answer, or "none".
    Line &Check(const char *version, const char *answer = "none", const char *package = "")
    {
        m_method = "POST";
        m_path = "/check";
        m_version = version;
        m_answer = answer;
        m_package = package;
        return *this;
    }

    /// A completed download.
    Line &Get(const char *package)
    {
        m_path = QByteArray("/packages/") + package;
        return *this;
    }

    Line &Head(const char *package)
    {
        m_method = "HEAD";
        return Get(package);
    }

    Line &Of(const char *product)
    {
        m_path.prepend(product).prepend('/');
        return *this;
    }

    Line &Status(const char *status)
    {
        m_status = status;
        m_answer.clear();
        m_package.clear();
        return *this;
    }

    Line &Interrupted()
    {
        m_completed = "";
        return *this;
    }

    Line &Path(const char *path)
    {
        m_path = path;
        return *this;
    }

    /// The same moment in the log of a node in another time zone.
    Line &HoursEast(int hours)
    {
        m_hoursEast = hours;
        return *this;
    }

    operator QByteArray() const // as a test's list of lines has them
    {
        const QDateTime local = start.addSecs(m_time).toOffsetFromUtc(m_hoursEast * 60 * 60);
        QByteArray time = local.toString(Qt::ISODate).toLatin1();
        time.replace("Z", "+00:00");
        return R"({"time":")" + time + R"(","address":")" + m_address + R"(","method":")" +
               m_method + R"(","path":")" + m_path + R"(","status":")" + m_status +
               R"(","bytes":1000,"seconds":0.001,"completed":")" + m_completed +
               R"(","version":")" + m_version + R"(","answer":")" + m_answer + R"(","package":")" +
               m_package + R"(","tls":"TLSv1.3"})" + '\n';
    }

private:
    int m_time;
    QByteArray m_address;
    QByteArray m_method = "GET";
    QByteArray m_path;
    QByteArray m_status = "200";
    QByteArray m_completed = "OK";
    QByteArray m_version;
    QByteArray m_answer;
    QByteArray m_package;
    int m_hoursEast = 0;
};

Line Offer(int time, const char *address)
{
    return Line(time, address).Check(oldVersion, newVersion, newPackage);
}

QStringList RulesOf(const Findings &findings)
{
    QStringList rules;
    for (const Finding &finding : findings)
        rules.append(finding.rule);
    return rules;
}

} // namespace

/// Each test writes logs into its own folder and reads all of them.
class TestRolloutStatistics : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void wholeUpdateIsFollowed();
    void networkThatNeverReturnsIsNotJudged();
    void networkThatReturnsWithoutIsCounted();
    void networkOfSeveralMachinesReturnedOnceOneHas();
    void refusedCheckTellsNothingOfTheVersion();
    void networksAreCountedOnceAndRequestsEachTime();
    void halfOfAnIpv6AddressIsOneNetwork();
    void logWithoutAddressesCountsRequests();
    void retryFollowsAnInterruptedDownload();
    void rangesAreNoDownloads();
    void otherAnswersToDownloads();
    void queryIsTheSamePackage();
    void packagesThatNobodyWasOffered();
    void unknownPackagesAndProductsDoNotFillTheReport();
    void answersToChecks();
    void productsAreApart();
    void earlierReleasesAreTheComparison();
    void knownReleasesAreTheComparisonWithoutOffers();
    void laterReleaseIsNotTheOldVersion();
    void severalTimesAreCountedInOnePass();
    void linesBeforeATimeOnlyCompare();
    void checksByDayVersionAndAnswer();
    void inventedVersionsAreBounded();
    void nodesAndRotatedFilesAreMergedByTime();
    void timeZonesAreTranslated();
    void smallDisorderIsNoWarning();
    void joinedLogsAreWarnedOf();
    void compressedLogsAreRecognizedByContent();
    void damagedGzipDataIsReadUntilThere();
    void damagedLinesAreCounted();
    void lastLineNeedsNoLineBreak();
    void veryLongLineIsOneDamagedLine();
    void anotherFormatIsWarnedOf();
    void emptyLogIsFine();
    void logNamedTwiceIsReadOnce();
    void whatCannotBeReadIsRefused();
    void millionsOfNetworksTakeLittleMemory();
    void daysWithoutRequestsAreShown();
    void factsHoldEverything();
    void textIsATable();
    void pageIsWritten();
    void pageThatCannotBeWrittenIsRefused();
    void pageNeverReplacesALog();
#ifdef Q_OS_UNIX
    void pageNeverReplacesALogThroughALink_posix();
#endif

private:
    QString Path(const QString &name) const
    {
        return m_folder->filePath(name);
    }
    void Write(const QString &name, const QByteArray &content);
    void Write(const QString &name, const QByteArrayList &lines)
    {
        Write(name, lines.join());
    }
    QString RuleOfRefusal();
    RolloutStatistics Read(std::optional<qint64> since = {});
    ReleaseFigures ReadKnown();
    ReleaseFigures ReadRelease(const QByteArrayList &lines);

    std::unique_ptr<QTemporaryDir> m_folder;
    QStringList m_logs; ///< the written logs, latest first
};

void TestRolloutStatistics::init()
{
    m_folder = std::make_unique<QTemporaryDir>();
    m_logs.clear();
}

void TestRolloutStatistics::Write(const QString &name, const QByteArray &content)
{
    QFile file(Path(name));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
    m_logs.prepend(file.fileName());
}

/// The rule by which the logs are refused; empty when they are accepted.
QString TestRolloutStatistics::RuleOfRefusal()
{
    Progress progress(Progress::Silent);
    RolloutStatistics statistics;
    const Failure failure = ReadLogs({m_logs, {}}, progress, statistics);
    return failure ? failure->rule : QString();
}

RolloutStatistics TestRolloutStatistics::Read(std::optional<qint64> since)
{
    Progress progress(Progress::Silent);
    RolloutStatistics statistics;
    const Failure failure = ReadLogs({m_logs, since}, progress, statistics);
    if (failure)
        QTest::qFail(qPrintable(failure->message), __FILE__, __LINE__);
    return statistics;
}

/// The figures of the new release, in the logs of a tree with an earlier and a later one.
ReleaseFigures TestRolloutStatistics::ReadKnown()
{
    LogSelection selection{m_logs, {}};
    for (const char *version : {oldVersion, newVersion, "2.1.4"}) {
        selection.releases.append(
            {QLatin1String(version), QStringLiteral("Client-%1.zip").arg(QLatin1String(version))});
    }
    Progress progress(Progress::Silent);
    RolloutStatistics statistics;
    const Failure failure = ReadLogs(selection, progress, statistics);
    const ReleaseFigures *const release =
        failure ? nullptr : statistics.products.constFirst().ReleaseWith(QLatin1String(newPackage));
    return release ? *release : ReleaseFigures();
}

/// The figures of the new release in a log of @p lines.
ReleaseFigures TestRolloutStatistics::ReadRelease(const QByteArrayList &lines)
{
    Write(QStringLiteral("updates.log"), lines);
    const RolloutStatistics statistics = Read();
    const ProductFigures *const product = statistics.Product(QString());
    const ReleaseFigures *const release =
        product ? product->ReleaseWith(QLatin1String(newPackage)) : nullptr;
    return release ? *release : ReleaseFigures();
}

void TestRolloutStatistics::wholeUpdateIsFollowed()
{
    const ReleaseFigures release = ReadRelease(
        {Offer(0, "192.0.2.1"), Line(5, "192.0.2.1").Get(newPackage),
         Line(3600, "192.0.2.1").Check(newVersion), Line(10, "192.0.2.2").Check(oldVersion)});
    QCOMPARE(release.version, QLatin1String(newVersion));
    QCOMPARE(release.firstOffered, start.toSecsSinceEpoch());
    QCOMPARE(release.offers, 1);
    QCOMPARE(release.offered, 1);
    QCOMPARE(release.started, 1);
    QCOMPARE(release.completed, 1);
    QCOMPARE(release.cameBack, 1);
    QCOMPARE(release.cameBackWithout, 0);
    QCOMPARE(release.downloads.downloads, 1);
    QCOMPARE(release.downloads.interrupted, 0);
    QCOMPARE(release.bytes, 1000);
}

void TestRolloutStatistics::networkThatNeverReturnsIsNotJudged()
{
    const ReleaseFigures release =
        ReadRelease({Offer(0, "192.0.2.1"), Line(5, "192.0.2.1").Get(newPackage)});
    QCOMPARE(release.completed, 1);
    QCOMPARE(release.cameBack, 0);
    QCOMPARE(release.cameBackWithout, 0);
}

void TestRolloutStatistics::networkThatReturnsWithoutIsCounted()
{
    const ReleaseFigures release = ReadRelease(
        {Offer(0, "192.0.2.1"), Line(5, "192.0.2.1").Get(newPackage), Offer(3600, "192.0.2.1"),
         // The download was not completed, so nothing else is expected.
         Offer(0, "192.0.2.2"), Line(5, "192.0.2.2").Get(newPackage).Interrupted(),
         Offer(3600, "192.0.2.2")});
    QCOMPARE(release.offered, 2);
    QCOMPARE(release.cameBack, 0);
    QCOMPARE(release.cameBackWithout, 1);
}

void TestRolloutStatistics::networkOfSeveralMachinesReturnedOnceOneHas()
{
    const ReleaseFigures release =
        ReadRelease({Offer(0, "192.0.2.1"), Line(5, "192.0.2.1").Get(newPackage),
                     Line(10, "192.0.2.1").Check("2.0.0"), Line(20, "192.0.2.1").Check(newVersion),
                     Line(30, "192.0.2.1").Check("2.0.0")});
    QCOMPARE(release.cameBack, 1);
    QCOMPARE(release.cameBackWithout, 0);
}

void TestRolloutStatistics::refusedCheckTellsNothingOfTheVersion()
{
    const QByteArrayList update{Offer(0, "192.0.2.1"), Line(5, "192.0.2.1").Get(newPackage)};
    const QByteArray refused = Line(3600, "192.0.2.1").Check("").Status("429");
    QCOMPARE(ReadRelease(update + QByteArrayList{refused}).cameBackWithout, 0);
    const QByteArray answered = Line(3600, "192.0.2.1").Check("");
    QCOMPARE(ReadRelease(update + QByteArrayList{answered}).cameBackWithout, 1);
}

void TestRolloutStatistics::networksAreCountedOnceAndRequestsEachTime()
{
    QByteArrayList lines;
    for (int time = 0; time < 3; ++time) {
        lines += {Offer(10 * time, "192.0.2.1"), Line(10 * time + 5, "192.0.2.1").Get(newPackage),
                  Line(10 * time + 6, "192.0.2.1").Check(newVersion)};
    }
    const ReleaseFigures release = ReadRelease(lines);
    QCOMPARE(release.offers, 3);
    QCOMPARE(release.downloads.downloads, 3);
    QCOMPARE(release.offered, 1);
    QCOMPARE(release.started, 1);
    QCOMPARE(release.completed, 1);
    QCOMPARE(release.cameBack, 1);
}

void TestRolloutStatistics::halfOfAnIpv6AddressIsOneNetwork()
{
    const ReleaseFigures release = ReadRelease(
        {Offer(0, "2001:db8:1:2:aaaa::1"), Line(5, "2001:db8:1:2:bbbb::1").Get(newPackage),
         Line(9, "2001:db8:1:2::1").Check(newVersion), Offer(0, "2001:db8:1:3::1")});
    QCOMPARE(release.offered, 2);
    QCOMPARE(release.completed, 1);
    QCOMPARE(release.cameBack, 1);
}

void TestRolloutStatistics::logWithoutAddressesCountsRequests()
{
    const ReleaseFigures release =
        ReadRelease({Offer(0, ""), Line(5, "").Get(newPackage), Line(9, "").Check(newVersion)});
    QCOMPARE(release.offers, 1);
    QCOMPARE(release.downloads.downloads, 1);
    QCOMPARE(release.offered, 0);
    QCOMPARE(release.cameBack, 0);
}

void TestRolloutStatistics::retryFollowsAnInterruptedDownload()
{
    const ReleaseFigures release = ReadRelease(
        {Line(0, "192.0.2.1").Get(newPackage).Interrupted(), Offer(0, "192.0.2.1"),
         Line(5, "192.0.2.1").Get(newPackage).Interrupted(),
         Line(6, "192.0.2.1").Get(newPackage).Status("429"), Line(7, "192.0.2.1").Get(newPackage),
         Line(8, "192.0.2.1").Get(newPackage), Line(9, "192.0.2.2").Get(newPackage)});
    QCOMPARE(release.downloads.downloads, 5);
    QCOMPARE(release.downloads.interrupted, 2);
    QCOMPARE(release.retries, 2);
    QCOMPARE(release.started, 2);
    QCOMPARE(release.completed, 2);
    QCOMPARE(release.unanswered.tooMany, 1);
}

void TestRolloutStatistics::rangesAreNoDownloads()
{
    const ReleaseFigures release =
        ReadRelease({Offer(0, "192.0.2.1"), Line(1, "192.0.2.1").Get(newPackage).Status("206"),
                     Line(2, "192.0.2.1").Get(newPackage).Status("206").Interrupted(),
                     Line(3, "192.0.2.2").Get(newPackage).Interrupted(),
                     Line(4, "192.0.2.2").Get(newPackage).Status("206")});
    QCOMPARE(release.ranges, 3);
    QCOMPARE(release.inRanges, 2);
    QCOMPARE(release.downloads.downloads, 1);
    QCOMPARE(release.downloads.interrupted, 1);
    QCOMPARE(release.started, 1);
    QCOMPARE(release.completed, 0);
    QCOMPARE(release.retries, 1);
}

void TestRolloutStatistics::otherAnswersToDownloads()
{
    QByteArrayList lines{Offer(0, "192.0.2.1")};
    for (const char *status :
         {"304", "416", "416", "403", "404", "404", "429", "500", "503", "000", "499"})
        lines.append(Line(1, "192.0.2.1").Get(newPackage).Status(status));
    lines.append(Line(2, "192.0.2.1").Head(newPackage));
    const ReleaseFigures release = ReadRelease(lines);
    QCOMPARE(release.unchanged, 1);
    QCOMPARE(release.unsatisfiable, 2);
    QCOMPARE(release.heads, 1);
    QCOMPARE(release.unanswered.refused, 3);
    QCOMPARE(release.unanswered.tooMany, 1);
    QCOMPARE(release.unanswered.serverErrors, 2);
    QCOMPARE(release.unanswered.ended, 2);
    QCOMPARE(release.downloads.downloads, 0);
    QCOMPARE(release.started, 0);
}

void TestRolloutStatistics::queryIsTheSamePackage()
{
    const ReleaseFigures release = ReadRelease(
        {Offer(0, "192.0.2.1"), Line(1, "192.0.2.1").Path("/packages/Client-2.1.3.zip?from=proxy"),
         Line(2, "192.0.2.1").Path("/packages/Client%2D2.1.3.zip")});
    QCOMPARE(release.downloads.downloads, 2);
}

void TestRolloutStatistics::packagesThatNobodyWasOffered()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Offer(0, "192.0.2.1"), Line(1, "192.0.2.1").Get("b.zip"),
                         Line(1, "192.0.2.1").Get("a.zip").Interrupted()});
    const RolloutStatistics statistics = Read();
    const ProductFigures &product = statistics.products.constFirst();
    QCOMPARE(product.releases.size(), 1);
    QCOMPARE(product.otherPackages.size(), 2);
    QCOMPARE(product.otherPackages.at(0).package, QStringLiteral("a.zip"));
    QCOMPARE(product.otherPackages.at(0).downloads.interrupted, 1);
    QCOMPARE(product.otherPackages.at(1).package, QStringLiteral("b.zip"));
}

void TestRolloutStatistics::unknownPackagesAndProductsDoNotFillTheReport()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Line(0, "192.0.2.1").Check(oldVersion),
                         Line(1, "192.0.2.1").Get("invented.zip").Status("404"),
                         Line(1, "192.0.2.1").Check("").Of("invented").Status("404"),
                         Line(1, "192.0.2.1").Check("").Of("invented").Status("501"),
                         Line(1, "192.0.2.1").Get("a.zip").Of("invented").Status("404")});
    const RolloutStatistics statistics = Read();
    QCOMPARE(statistics.products.size(), 1);
    QCOMPARE(statistics.otherRequests, 3);
    QCOMPARE(statistics.products.constFirst().otherPackages.size(), 0);
    QCOMPARE(statistics.products.constFirst().unknownPackages.refused, 1);
}

void TestRolloutStatistics::answersToChecks()
{
    QByteArrayList lines{Offer(0, "192.0.2.1"), Line(0, "192.0.2.1").Check(oldVersion)};
    for (const char *status : {"413", "429", "429", "502", "000"})
        lines.append(Line(1, "192.0.2.1").Check("").Status(status));
    Write(QStringLiteral("updates.log"), lines);
    const RolloutStatistics statistics = Read();
    const ProductFigures &product = statistics.products.constFirst();
    QCOMPARE(product.checks, 7);
    QCOMPARE(product.answeredChecks, 2);
    QCOMPARE(product.offers, 1);
    QCOMPARE(product.unansweredChecks.refused, 1);
    QCOMPARE(product.unansweredChecks.tooMany, 2);
    QCOMPARE(product.unansweredChecks.serverErrors, 1);
    QCOMPARE(product.unansweredChecks.ended, 1);
}

void TestRolloutStatistics::productsAreApart()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Offer(0, "192.0.2.1"), Offer(0, "192.0.2.1").Of("desk"),
                         Line(1, "192.0.2.1").Get(newPackage).Of("desk"),
                         Line(2, "192.0.2.1").Check(newVersion).Of("desk")});
    const RolloutStatistics statistics = Read();
    QCOMPARE(statistics.products.size(), 2);
    const ReleaseFigures &plain = statistics.Product(QString())->releases.constFirst();
    const ReleaseFigures &desk = statistics.Product(QStringLiteral("desk"))->releases.constFirst();
    QCOMPARE(plain.offered, 1);
    QCOMPARE(plain.started, 0);
    QCOMPARE(plain.cameBack, 0);
    QCOMPARE(desk.started, 1);
    QCOMPARE(desk.cameBack, 1);
    QVERIFY(!statistics.Product(QStringLiteral("phone")));
}

void TestRolloutStatistics::earlierReleasesAreTheComparison()
{
    const ReleaseFigures release =
        ReadRelease({Line(0, "192.0.2.1").Check("2.1.1", oldVersion, oldPackage),
                     Line(1, "192.0.2.1").Get(oldPackage).Interrupted(),
                     Line(2, "192.0.2.1").Get(oldPackage), Line(3, "192.0.2.2").Get(oldPackage),
                     Offer(10, "192.0.2.1"), Line(11, "192.0.2.1").Get(newPackage),
                     // It is still downloaded, so it says something about the current network.
                     Line(12, "192.0.2.3").Get(oldPackage), Line(13, "192.0.2.1").Get("other.zip"),
                     Line(20, "192.0.2.1").Check(newVersion, "2.1.4", "Client-2.1.4.zip"),
                     Line(21, "192.0.2.1").Get("Client-2.1.4.zip").Interrupted()});
    QCOMPARE(release.before.downloads, 4);
    QCOMPARE(release.before.interrupted, 1);
    const RolloutStatistics statistics = Read();
    const QVector<ReleaseFigures> &releases = statistics.products.constFirst().releases;
    QCOMPARE(releases.size(), 3);
    QCOMPARE(releases.at(0).version, QLatin1String(oldVersion));
    QCOMPARE(releases.at(0).before.downloads, 0);
    QCOMPARE(releases.at(2).before.downloads, 5);
}

void TestRolloutStatistics::knownReleasesAreTheComparisonWithoutOffers()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Line(0, "192.0.2.1").Get(oldPackage).Interrupted(),
                         Line(1, "192.0.2.1").Get("Client-2.1.4.zip"), Offer(2, "192.0.2.1"),
                         Line(3, "192.0.2.1").Get(newPackage)});
    QCOMPARE(ReadKnown().before.downloads, 1);
    QCOMPARE(ReadKnown().before.interrupted, 1);
}

void TestRolloutStatistics::laterReleaseIsNotTheOldVersion()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Offer(0, "192.0.2.1"), Line(1, "192.0.2.1").Get(newPackage),
                         Line(2, "192.0.2.1").Check("2.1.4"), Offer(0, "192.0.2.2"),
                         Line(1, "192.0.2.2").Get(newPackage),
                         Line(2, "192.0.2.2").Check(oldVersion)});
    QCOMPARE(ReadKnown().completed, 2);
    QCOMPARE(ReadKnown().cameBackWithout, 1);
}

void TestRolloutStatistics::severalTimesAreCountedInOnePass()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Offer(0, "192.0.2.1"), Offer(10, "192.0.2.2")});
    Progress progress(Progress::Silent);
    QVector<RolloutStatistics> statistics;
    const qint64 began = start.toSecsSinceEpoch();
    QVERIFY(!ReadLogsSince({began, began + 10}, {m_logs, {}}, progress, statistics));
    QCOMPARE(statistics.size(), 2);
    QCOMPARE(statistics.at(0).products.constFirst().checks, 2);
    QCOMPARE(statistics.at(1).products.constFirst().checks, 1);
}

void TestRolloutStatistics::linesBeforeATimeOnlyCompare()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Line(0, "192.0.2.1").Check("2.1.1", oldVersion, oldPackage),
                         Line(1, "192.0.2.1").Get(oldPackage).Interrupted(), Offer(2, "192.0.2.1"),
                         Line(3, "192.0.2.1").Get(newPackage), Offer(10, "192.0.2.2"),
                         Line(11, "192.0.2.2").Get(newPackage).Interrupted()});
    const RolloutStatistics statistics = Read(start.toSecsSinceEpoch() + 10);
    QCOMPARE(statistics.earlierLines, 4);
    QCOMPARE(statistics.lines, 6);
    const ProductFigures &product = statistics.products.constFirst();
    QCOMPARE(product.checks, 1);
    QCOMPARE(product.releases.size(), 1);
    const ReleaseFigures &release = product.releases.constFirst();
    QCOMPARE(release.version, QLatin1String(newVersion));
    QCOMPARE(release.offered, 1);
    QCOMPARE(release.downloads.downloads, 1);
    QCOMPARE(release.downloads.interrupted, 1);
    QCOMPARE(release.before.downloads, 1);
    QCOMPARE(release.before.interrupted, 1);
    QCOMPARE(release.firstOffered, start.toSecsSinceEpoch() + 2);
}

void TestRolloutStatistics::checksByDayVersionAndAnswer()
{
    constexpr int untilMidnight = 14 * 60 * 60;
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Line(0, "192.0.2.1").Check(oldVersion),
                         Line(1, "192.0.2.2").Check(oldVersion), Offer(2, "192.0.2.3"),
                         Line(3, "192.0.2.4").Check(""),
                         Line(4, "192.0.2.5").Check("").Status("429"),
                         Line(untilMidnight - 1, "192.0.2.1").Get(newPackage),
                         Line(untilMidnight, "192.0.2.1").Check(newVersion),
                         Line(untilMidnight, "192.0.2.1").Get(newPackage).Interrupted()});
    const RolloutStatistics statistics = Read();
    const QVector<DayFigures> &days = statistics.products.constFirst().days;
    QCOMPARE(days.size(), 2);
    QCOMPARE(days.at(0).day, QDate(2026, 11, 21));
    QCOMPARE(days.at(0).downloads.downloads, 1);
    QCOMPARE(days.at(0).downloads.interrupted, 0);
    QCOMPARE(days.at(1).day, QDate(2026, 11, 22));
    QCOMPARE(days.at(1).downloads.interrupted, 1);
    QStringList counts;
    for (const CheckCount &check : days.at(0).checks)
        counts += QStringLiteral("%1>%2:%3").arg(*check.version, check.answer).arg(check.count);
    QCOMPARE(counts.join(QLatin1Char(' ')),
             QStringLiteral(">:1 >none:1 2.1.2>2.1.3:1 2.1.2>none:2"));
}

void TestRolloutStatistics::inventedVersionsAreBounded()
{
    QByteArrayList lines;
    for (int number = 0; number < MaxInstalledVersions + 500; ++number) {
        lines.append(Line(number, "192.0.2.1")
                         .Check(QByteArray("x" + QByteArray::number(number)).constData()));
    }
    lines += {Offer(5000, "192.0.2.2"), Line(5001, "192.0.2.2").Check(newVersion)};
    const ReleaseFigures release = ReadRelease(lines);
    QCOMPARE(release.cameBack, 1);
    const RolloutStatistics statistics = Read();
    const QVector<CheckCount> &checks = statistics.products.constFirst().days.constFirst().checks;
    QVERIFY(checks.size() <= MaxInstalledVersions + 5);
    qint64 others = 0;
    for (const CheckCount &check : checks)
        others += check.version ? 0 : check.count;
    QVERIFY(others >= 500);
}

void TestRolloutStatistics::nodesAndRotatedFilesAreMergedByTime()
{
    // They are named in the reverse order of writing.
    Write(QStringLiteral("a.log.1"),
          QByteArrayList{Offer(0, "192.0.2.1"), Line(30, "192.0.2.9").Check(oldVersion)});
    Write(QStringLiteral("a.log"),
          QByteArrayList{Line(50, "192.0.2.1").Check(newVersion), Offer(60, "192.0.2.2")});
    Write(QStringLiteral("b.log"), QByteArrayList{Line(40, "192.0.2.1").Get(newPackage),
                                                  Line(70, "192.0.2.2").Get(newPackage)});
    Write(QStringLiteral("c.log"), QByteArrayList{Line(80, "192.0.2.9").Check(oldVersion)});
    const RolloutStatistics statistics = Read();
    QCOMPARE(statistics.files, 4);
    QCOMPARE(statistics.lines, 7);
    QCOMPARE(statistics.firstTime, start.toSecsSinceEpoch());
    QCOMPARE(statistics.lastTime, start.toSecsSinceEpoch() + 80);
    QVERIFY(statistics.warnings.isEmpty());
    const ReleaseFigures &release = statistics.products.constFirst().releases.constFirst();
    QCOMPARE(release.offered, 2);
    QCOMPARE(release.completed, 2);
    QCOMPARE(release.cameBack, 1);
    QCOMPARE(release.cameBackWithout, 0);
}

void TestRolloutStatistics::timeZonesAreTranslated()
{
    // The clock of the second node is eight hours ahead.
    Write(QStringLiteral("a.log"),
          QByteArrayList{Offer(0, "192.0.2.1"), Line(20, "192.0.2.1").Check(newVersion)});
    Write(QStringLiteral("b.log"),
          QByteArrayList{Line(10, "192.0.2.1").Get(newPackage).HoursEast(8),
                         Offer(30, "192.0.2.2").HoursEast(8)});
    const RolloutStatistics statistics = Read();
    QCOMPARE(statistics.firstTime, start.toSecsSinceEpoch());
    QCOMPARE(statistics.lastTime, start.toSecsSinceEpoch() + 30);
    const ReleaseFigures &release = statistics.products.constFirst().releases.constFirst();
    QCOMPARE(release.cameBack, 1);
    QCOMPARE(release.cameBackWithout, 0);
    QCOMPARE(statistics.products.constFirst().days.size(), 1);
}

void TestRolloutStatistics::smallDisorderIsNoWarning()
{
    const ReleaseFigures release =
        ReadRelease({Line(2, "192.0.2.1").Get(newPackage), Offer(1, "192.0.2.1"),
                     Line(100, "192.0.2.1").Check(newVersion)});
    QCOMPARE(release.completed, 1);
    QCOMPARE(release.cameBack, 1);
    QVERIFY(Read().warnings.isEmpty());
}

void TestRolloutStatistics::joinedLogsAreWarnedOf()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Offer(5000, "192.0.2.1"), Offer(0, "192.0.2.2")});
    const Findings warnings = Read().warnings;
    QCOMPARE(RulesOf(warnings), QStringList{QStringLiteral("log-order")});
    QVERIFY2(warnings.constFirst().message.contains(QStringLiteral("5000 seconds")),
             qPrintable(warnings.constFirst().message));
}

void TestRolloutStatistics::compressedLogsAreRecognizedByContent()
{
    QByteArray many;
    for (int time = 0; time < 5000; ++time)
        many += Line(time, "192.0.2.1").Check(oldVersion);
    // Several gzip members, as programs that append write them.
    Write(QStringLiteral("updates.log"),
          Gzip(Offer(0, "192.0.2.1")) + Gzip(many) + Gzip(QByteArray()));
    Write(QStringLiteral("updates.log.1.gz"), QByteArray(Offer(0, "192.0.2.2")));
    const RolloutStatistics statistics = Read();
    QCOMPARE(statistics.lines, 5002);
    QCOMPARE(statistics.damagedLines, 0);
    QCOMPARE(statistics.products.constFirst().releases.constFirst().offered, 2);
    QVERIFY(statistics.warnings.isEmpty());
}

void TestRolloutStatistics::damagedGzipDataIsReadUntilThere()
{
    QByteArray many = Offer(0, "192.0.2.1");
    for (int time = 1; time < 5000; ++time)
        many += Line(time, "192.0.2.1").Check(QByteArray::number(time * 7919).constData());
    QByteArray packed = Gzip(many);
    Write(QStringLiteral("cut.gz"), packed.left(packed.size() / 2));
    RolloutStatistics statistics = Read();
    QCOMPARE(RulesOf(statistics.warnings), QStringList{QStringLiteral("gzip-damaged")});
    QVERIFY(statistics.lines > 1000);
    QVERIFY(statistics.lines < 4000);
    QVERIFY(statistics.damagedLines <= 1);
    QCOMPARE(statistics.products.constFirst().releases.constFirst().offered, 1);

    init();
    Write(QStringLiteral("garbage-behind.gz"), packed + "garbage");
    statistics = Read();
    QCOMPARE(RulesOf(statistics.warnings), QStringList{QStringLiteral("gzip-damaged")});
    QCOMPARE(statistics.lines, 5000);
}

void TestRolloutStatistics::damagedLinesAreCounted()
{
    const QByteArray line = Offer(0, "192.0.2.1");
    Write(QStringLiteral("updates.log"),
          line + line.left(80) + '\n' + line.mid(80) + QByteArray(50, '\0') + '\n' + "text\n" +
              QByteArray(Line(1, "192.0.2.1").Path("/favicon.ico").Status("404")) + line);
    const RolloutStatistics statistics = Read();
    QCOMPARE(statistics.lines, 7);
    QCOMPARE(statistics.damagedLines, 4);
    QCOMPARE(statistics.otherRequests, 1);
    QCOMPARE(statistics.products.constFirst().checks, 2);
}

void TestRolloutStatistics::lastLineNeedsNoLineBreak()
{
    QByteArray lines = QByteArray(Offer(0, "192.0.2.1")) + Offer(1, "192.0.2.2");
    Write(QStringLiteral("updates.log"), lines.chopped(1));
    RolloutStatistics statistics = Read();
    QCOMPARE(statistics.lines, 2);
    QCOMPARE(statistics.damagedLines, 0);

    init();
    Write(QStringLiteral("updates.log"), lines.chopped(2));
    statistics = Read();
    QCOMPARE(statistics.lines, 2);
    QCOMPARE(statistics.damagedLines, 1);
}

void TestRolloutStatistics::veryLongLineIsOneDamagedLine()
{
    const QByteArray line = Offer(0, "192.0.2.1");
    for (const int length : {60 * 1024, 70 * 1024, 256 * 1024, 3 * 1024 * 1024}) {
        init();
        Write(QStringLiteral("updates.log"),
              line + QByteArray(length, 'x') + '\n' + line + QByteArray(length, 'x'));
        const RolloutStatistics statistics = Read();
        QCOMPARE(statistics.lines, 4);
        QCOMPARE(statistics.damagedLines, 2);
        QCOMPARE(statistics.products.constFirst().checks, 2);
    }
}

void TestRolloutStatistics::anotherFormatIsWarnedOf()
{
    Write(QStringLiteral("access.log"),
          R"(192.0.2.7 - - [21/Nov/2026:05:31:49 +0000] "POST /check HTTP/1.1" 200 715)"
          "\n");
    const RolloutStatistics statistics = Read();
    QCOMPARE(RulesOf(statistics.warnings), QStringList{QStringLiteral("log-form")});
    QVERIFY(statistics.products.isEmpty());
}

void TestRolloutStatistics::emptyLogIsFine()
{
    Write(QStringLiteral("updates.log"), QByteArray());
    Write(QStringLiteral("updates.log.2.gz"), Gzip(QByteArray()));
    const RolloutStatistics statistics = Read();
    QVERIFY(statistics.warnings.isEmpty());
    QCOMPARE(statistics.lines, 0);
    QVERIFY(!statistics.firstTime);
}

void TestRolloutStatistics::logNamedTwiceIsReadOnce()
{
    Write(QStringLiteral("updates.log"), QByteArrayList{Offer(0, "192.0.2.1")});
    m_logs.append(Path(QStringLiteral("./updates.log")));
    const RolloutStatistics statistics = Read();
    QCOMPARE(statistics.files, 1);
    QCOMPARE(statistics.lines, 1);
    QCOMPARE(RulesOf(statistics.warnings), QStringList{QStringLiteral("log-twice")});
}

void TestRolloutStatistics::whatCannotBeReadIsRefused()
{
    Write(QStringLiteral("updates.log"), QByteArrayList{Offer(0, "192.0.2.1")});
    m_logs.append(Path(QStringLiteral("missing.log")));
    QCOMPARE(RuleOfRefusal(), QStringLiteral("unreadable"));
    m_logs.last() = m_folder->path();
    QCOMPARE(RuleOfRefusal(), QStringLiteral("unreadable"));
}

void TestRolloutStatistics::millionsOfNetworksTakeLittleMemory()
{
    constexpr int networks = 400 * 1000;
    QByteArray lines;
    const QByteArray line = Offer(0, "ADDRESS");
    for (int network = 0; network < networks; ++network) {
        const QByteArray address = "10." + QByteArray::number(network >> 16) + '.' +
                                   QByteArray::number(network >> 8 & 255) + '.' +
                                   QByteArray::number(network & 255);
        lines += QByteArray(line).replace("ADDRESS", address);
    }
    Write(QStringLiteral("updates.log"), lines);
    const PeakMemory memory;
    const RolloutStatistics statistics = Read();
    QCOMPARE(statistics.products.constFirst().releases.constFirst().offered, networks);
    // Slots of 12 bytes that are at least 3/8 full, records of 8 bytes, and buffers.
    QVERIFY2(memory.GrownBy() < 40LL * networks + 4LL * 1024 * 1024,
             qPrintable(QString::number(memory.GrownBy())));
}

void TestRolloutStatistics::daysWithoutRequestsAreShown()
{
    constexpr int day = 24 * 60 * 60;
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Line(0, "192.0.2.1").Check("2.1.0"), Line(1, "192.0.2.1").Check("2.1.0"),
                         Line(2, "192.0.2.1").Check(""), Line(2 * day, "192.0.2.1").Check("2.1.1"),
                         Line(2 * day, "192.0.2.1").Get(newPackage)});
    const RolloutStatistics statistics = Read();
    const DailyFigures figures = DailyFiguresOf(statistics.products.constFirst(), 10, 2);
    QCOMPARE(figures.days.size(), 3);
    QCOMPARE(figures.checks.size(), 3);
    QCOMPARE(figures.checks.at(0).name, QStringLiteral("2.1.0"));
    QCOMPARE(figures.checks.at(0).values, (QVector<qint64>{2, 0, 0}));
    QCOMPARE(figures.checks.at(1).name, QStringLiteral("2.1.1"));
    QCOMPARE(figures.checks.at(2).name, QStringLiteral("others"));
    QCOMPARE(figures.checks.at(2).values, (QVector<qint64>{1, 0, 0}));
    QCOMPARE(figures.completed.values, (QVector<qint64>{0, 0, 1}));
    // Only the last ones.
    QCOMPARE(DailyFiguresOf(statistics.products.constFirst(), 2, 2).days,
             (QVector<QDate>{QDate(2026, 11, 22), QDate(2026, 11, 23)}));
}

void TestRolloutStatistics::factsHoldEverything()
{
    Write(QStringLiteral("updates.log"),
          QByteArrayList{Offer(0, "192.0.2.1"), Line(1, "192.0.2.1").Get(newPackage),
                         Line(2, "192.0.2.1").Get("other.zip"), "text\n"});
    const QByteArray expected = R"({
        "logs": 1, "lines": 4, "damagedLines": 1, "otherRequests": 0,
        "from": "2026-11-21T10:00:00Z", "to": "2026-11-21T10:00:02Z",
        "products": [{
            "product": "",
            "checks": {"total": 1, "answered": 1, "offers": 1,
                       "refused": 0, "tooMany": 0, "serverErrors": 0, "ended": 0},
            "unknownPackages": {"refused": 0, "tooMany": 0, "serverErrors": 0, "ended": 0},
            "releases": [{
                "version": "2.1.3", "package": "Client-2.1.3.zip",
                "firstOffered": "2026-11-21T10:00:00Z",
                "networks": {"offered": 1, "started": 1, "completed": 1, "cameBack": 0,
                             "cameBackWithout": 0, "inRanges": 0},
                "requests": {"offers": 1, "downloads": 1, "interrupted": 0, "retries": 0,
                             "ranges": 0, "unchanged": 0, "unsatisfiable": 0, "heads": 0,
                             "bytes": 1000, "refused": 0, "tooMany": 0, "serverErrors": 0,
                             "ended": 0},
                "before": {"downloads": 0, "interrupted": 0}}],
            "otherPackages": [{
                "version": null, "package": "other.zip", "firstOffered": null,
                "networks": {"offered": 0, "started": 1, "completed": 1, "cameBack": 0,
                             "cameBackWithout": 0, "inRanges": 0},
                "requests": {"offers": 0, "downloads": 1, "interrupted": 0, "retries": 0,
                             "ranges": 0, "unchanged": 0, "unsatisfiable": 0, "heads": 0,
                             "bytes": 1000, "refused": 0, "tooMany": 0, "serverErrors": 0,
                             "ended": 0},
                "before": {"downloads": 0, "interrupted": 0}}],
            "days": [{
                "day": "2026-11-21", "downloads": 2, "interrupted": 0, "bytes": 2000,
                "checks": [{"version": "2.1.2", "answer": "2.1.3", "count": 1}]}]}]})";
    QCOMPARE(QJsonDocument(ReportFacts(Read())).toJson(),
             QJsonDocument::fromJson(expected).toJson());
}

void TestRolloutStatistics::textIsATable()
{
    QByteArrayList lines;
    for (int number = 0; number < 1500; ++number) {
        const QByteArray address =
            "10.0." + QByteArray::number(number >> 8) + '.' + QByteArray::number(number & 255);
        lines.append(Offer(0, address.constData()));
    }
    lines +=
        {Line(1, "10.0.0.1").Get(newPackage), Line(1, "10.0.0.2").Get(newPackage).Interrupted()};
    Write(QStringLiteral("updates.log"), lines);
    const QString text = ReportText(Read());
    QCOMPARE(text,
             QStringLiteral(
                 "Read 1 log with 1,502 lines, 2026-11-21 10:00 to 2026-11-21 10:00 UTC.\n"
                 "\n"
                 "  checks  answered  with a release  4xx  429  5xx  ended\n"
                 "  1,500      1,500           1,500    0    0    0      0\n"
                 "\n"
                 "  networks  offered  started  completed  came back  without it  in ranges\n"
                 "  2.1.3       1,500        2          1          0           0          0\n"
                 "\n"
                 "  downloads         begun  interrupted   share  before  retries  ranges  4xx  "
                 "429  5xx  ended\n"
                 "  Client-2.1.3.zip      2            1  50.0 %       -        0       0    0    "
                 "0    0      0\n"
                 "\n"
                 "  checks a day from  2.1.2\n"
                 "  2026-11-21         1,500\n"));
}

void TestRolloutStatistics::pageIsWritten()
{
    Write(QStringLiteral("updates.log"), QByteArrayList{Offer(0, "192.0.2.1")});
    Progress progress(Progress::Silent);
    const Outcome outcome = ReportLogs({m_logs, Path(QStringLiteral("page.html"))}, progress);
    QVERIFY(outcome.refusals.isEmpty());
    QVERIFY(outcome.summary.contains(QStringLiteral("page.html")));
    QCOMPARE(outcome.facts.value(QStringLiteral("html")).toString(),
             Path(QStringLiteral("page.html")));
    QFile page(Path(QStringLiteral("page.html")));
    QVERIFY(page.open(QIODevice::ReadOnly));
    QVERIFY(page.readAll().contains("Version 2.1.3"));
}

void TestRolloutStatistics::pageThatCannotBeWrittenIsRefused()
{
    Write(QStringLiteral("updates.log"), QByteArrayList{Offer(0, "192.0.2.1")});
    Progress progress(Progress::Silent);
    const Outcome outcome =
        ReportLogs({m_logs, Path(QStringLiteral("no folder/page.html"))}, progress);
    QCOMPARE(RulesOf(outcome.refusals), QStringList{QStringLiteral("unwritable")});
    QVERIFY(outcome.refusals.constFirst().message.endsWith(QLatin1String("; create the folder")));
    QVERIFY(outcome.summary.isEmpty());
}

void TestRolloutStatistics::pageNeverReplacesALog()
{
    Write(QStringLiteral("updates.log"), QByteArrayList{Offer(0, "192.0.2.1")});
    Progress progress(Progress::Silent);
    const Outcome outcome = ReportLogs({m_logs, Path(QStringLiteral("updates.log"))}, progress);
    QCOMPARE(RulesOf(outcome.refusals), QStringList{QStringLiteral("html")});
    QCOMPARE(Read().lines, 1);
}

#ifdef Q_OS_UNIX
void TestRolloutStatistics::pageNeverReplacesALogThroughALink_posix()
{
    Write(QStringLiteral("updates.log"), QByteArrayList{Offer(0, "192.0.2.1")});
    QVERIFY(QFile::link(Path(QStringLiteral("updates.log")), Path(QStringLiteral("page.html"))));
    Progress progress(Progress::Silent);
    const Outcome outcome = ReportLogs({m_logs, Path(QStringLiteral("page.html"))}, progress);
    QCOMPARE(RulesOf(outcome.refusals), QStringList{QStringLiteral("html")});
    QCOMPARE(Read().lines, 1);
}
#endif

QTEST_GUILESS_MAIN(TestRolloutStatistics)
#include "tst_rolloutstatistics.moc"
