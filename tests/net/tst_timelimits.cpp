// SPDX-License-Identifier: MIT
#include "net/timelimits.h"

#include <QTest>

#include <limits>

class TestTimeLimits : public QObject
{
    Q_OBJECT

private slots:
    void checkIsGivenUpAfterTenSeconds_data();
    void checkIsGivenUpAfterTenSeconds();
    void downloadIsGivenUpAfterSixSecondsOfSilence_data();
    void downloadIsGivenUpAfterSixSecondsOfSilence();
};

namespace
{

void AddElapsed(const char *name, qint64 elapsedMs, bool over)
{
    QTest::newRow(name) << elapsedMs << over;
}

void AddColumns()
{
    QTest::addColumn<qint64>("elapsedMs");
    QTest::addColumn<bool>("over");
}

} // namespace

void TestTimeLimits::checkIsGivenUpAfterTenSeconds_data()
{
    AddColumns();
    AddElapsed("just sent", 0, false);
    AddElapsed("first tick", 2000, false);
    AddElapsed("stalled download's limit", 6000, false);
    AddElapsed("last millisecond in time", 9999, false);
    AddElapsed("first millisecond late", 10000, true);
    AddElapsed("tick after that", 12000, true);
    AddElapsed("computer slept for a month", 2592000000LL, true);
    AddElapsed("clock set back", -3600000, false);
    AddElapsed("clock set back to the epoch", std::numeric_limits<qint64>::min(), false);
}

void TestTimeLimits::checkIsGivenUpAfterTenSeconds()
{
    QFETCH(qint64, elapsedMs);
    QFETCH(bool, over);
    QCOMPARE(TimeLimits::CheckTimedOut(elapsedMs), over);
}

void TestTimeLimits::downloadIsGivenUpAfterSixSecondsOfSilence_data()
{
    AddColumns();
    AddElapsed("just received", 0, false);
    AddElapsed("two ticks", 4000, false);
    AddElapsed("last millisecond in time", 5999, false);
    AddElapsed("exactly the limit", 6000, true);
    AddElapsed("past the limit", 6001, true);
    AddElapsed("computer slept for a month", 2592000000LL, true);
    AddElapsed("clock set back", -3600000, false);
}

void TestTimeLimits::downloadIsGivenUpAfterSixSecondsOfSilence()
{
    QFETCH(qint64, elapsedMs);
    QFETCH(bool, over);
    QCOMPARE(TimeLimits::DownloadStalled(elapsedMs), over);
}

QTEST_APPLESS_MAIN(TestTimeLimits)
#include "tst_timelimits.moc"
