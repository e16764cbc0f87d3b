#include "net/timelimits.h"

#include <QTest>

#include <limits>

class tst_TimeLimits : public QObject
{
    Q_OBJECT

private slots:
    void checkIsGivenUpAfterTenSeconds_data();
    void checkIsGivenUpAfterTenSeconds();
    void downloadIsGivenUpAfterSixSecondsOfSilence_data();
    void downloadIsGivenUpAfterSixSecondsOfSilence();
    void intervalsAreThoseTheUserWaits();
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

void tst_TimeLimits::checkIsGivenUpAfterTenSeconds_data()
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

void tst_TimeLimits::checkIsGivenUpAfterTenSeconds()
{
    QFETCH(qint64, elapsedMs);
    QFETCH(bool, over);
    QCOMPARE(TimeLimits::CheckTimedOut(elapsedMs), over);
}

void tst_TimeLimits::downloadIsGivenUpAfterSixSecondsOfSilence_data()
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

void tst_TimeLimits::downloadIsGivenUpAfterSixSecondsOfSilence()
{
    QFETCH(qint64, elapsedMs);
    QFETCH(bool, over);
    QCOMPARE(TimeLimits::DownloadStalled(elapsedMs), over);
}

void tst_TimeLimits::intervalsAreThoseTheUserWaits()
{
    QCOMPARE(TimeLimits::FirstCheckDelayMs, 1000);
    QCOMPARE(TimeLimits::TickMs, 2000);
}

QTEST_APPLESS_MAIN(tst_TimeLimits)
#include "tst_timelimits.moc"
