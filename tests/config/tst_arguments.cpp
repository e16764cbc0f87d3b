// SPDX-License-Identifier: MIT
#include "config/arguments.h"

#include <QTest>

class TestArguments : public QObject
{
    Q_OBJECT

private slots:
    void eitherSwitchForcesTheCheck_data();
    void eitherSwitchForcesTheCheck();
    void meetingLinksAreRecognised_data();
    void meetingLinksAreRecognised();
};

void TestArguments::eitherSwitchForcesTheCheck_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("forced");
    QTest::newRow("none") << QStringList() << false;
    QTest::newRow("-noremid") << QStringList(QStringLiteral("-noremid")) << true;
    QTest::newRow("-immediately") << QStringList(QStringLiteral("-immediately")) << true;
    QTest::newRow("among others") << QStringList({QStringLiteral("a"), QStringLiteral("-noremid"),
                                                  QStringLiteral("b")})
                                  << true;
    QTest::newRow("other case") << QStringList(QStringLiteral("-Immediately")) << false;
    QTest::newRow("part of an argument") << QStringList(QStringLiteral("-noremid=1")) << false;
    QTest::newRow("spelled right") << QStringList(QStringLiteral("-noremind")) << false;
}

void TestArguments::eitherSwitchForcesTheCheck()
{
    QFETCH(QStringList, arguments);
    QTEST(HasForcingSwitch(arguments), "forced");
}

void TestArguments::meetingLinksAreRecognised_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<bool>("link");
    QTest::addColumn<QString>("passedOn");
    const auto row = [](const char *argument, bool link, const char *passedOn) {
        QTest::newRow(argument) << QString::fromUtf8(argument) << link
                                << QString::fromUtf8(passedOn);
    };
    row("qorb-meeting://abc", true, "--url=abc");
    row("qorb-meeting://a b?c=d%20e#f", true, "--url=a b?c=d%20e#f");
    row("qorb-meeting://a://b://c", true, "--url=a");
    row("qorb-meeting:////a", true, "--url=//a");
    row("qorb-meeting:", true, "--url=");
    row("qorb-meeting", true, "--url=");
    row("xqorb-meetingx://a", true, "--url=a");
    row("QORB-meeting://abc", false, "--url=abc");
    row("qorb meeting://abc", false, "--url=abc");
    row("https://example.com", false, "--url=example.com");
    row("", false, "--url=");
}

void TestArguments::meetingLinksAreRecognised()
{
    QFETCH(QString, argument);
    QTEST(IsMeetingLink(argument), "link");
    QTEST(ClientUrlArgument(argument), "passedOn");
}

QTEST_APPLESS_MAIN(TestArguments)
#include "tst_arguments.moc"
