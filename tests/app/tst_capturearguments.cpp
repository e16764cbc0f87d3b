// SPDX-License-Identifier: MIT
#include "app/capturearguments.h"
#include "config/global.h"
#include "tests/support/localeencoding.h"
#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"
#include "tests/support/testhome.h"

#include <QTest>

#include <initializer_list>
#include <vector>

namespace
{

/// Captures @p arguments after the program's name, as main() gets them.
void Capture(std::initializer_list<QByteArray> arguments)
{
    std::vector<QByteArray> texts{"AutoUpdate"};
    texts.insert(texts.end(), arguments);
    std::vector<char *> argv;
    argv.reserve(texts.size() + 1);
    for (QByteArray &text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    CaptureArguments(int(texts.size()), argv.data());
}

} // namespace

class TestCaptureArguments : public QObject
{
    Q_OBJECT

private slots:
    void argumentsKeepTheirOrderAndAreLogged();
    void withoutArgumentsTheListStaysEmpty();
    void argumentsAreUtf8WhateverTheLocale();
};

void TestCaptureArguments::argumentsKeepTheirOrderAndAreLogged()
{
    const TestHome home;
    const LogCapture log;
    Capture({"-noremid", "-immediately", "", "-noremid"});
    QCOMPARE(Global::instance.cmdLineArgs,
             QStringList({QStringLiteral("-noremid"), QStringLiteral("-immediately"), QString(),
                          QStringLiteral("-noremid")}));
    QCOMPARE(log.Messages(),
             QStringList({LogLine::CommandLineParameter(QStringLiteral("-noremid")),
                          LogLine::CommandLineParameter(QStringLiteral("-immediately")),
                          LogLine::CommandLineParameter(QString()),
                          LogLine::CommandLineParameter(QStringLiteral("-noremid"))}));
}

void TestCaptureArguments::withoutArgumentsTheListStaysEmpty()
{
    const TestHome home;
    const LogCapture log;
    Capture({});
    QCOMPARE(Global::instance.cmdLineArgs, QStringList());
    QCOMPARE(log.Messages(), QStringList());
}

void TestCaptureArguments::argumentsAreUtf8WhateverTheLocale()
{
    const TestHome home;
    const LocaleEncoding western("ISO-8859-1");
    const LogCapture log;
    Capture({u8"café", "caf\xe9"});
    QCOMPARE(Global::instance.cmdLineArgs,
             QStringList({QStringLiteral("caf\u00e9"), QStringLiteral("caf\ufffd")}));
}

QTEST_GUILESS_MAIN(TestCaptureArguments)
#include "tst_capturearguments.moc"
