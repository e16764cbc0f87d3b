// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/logcapture.h"
#include "tests/support/loglines.h"
#include "tests/support/testhome.h"

#include <QTest>

#include <memory>

class TestServiceReply : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void everyFieldIsTakenOver();
    void bodyIsLogged_data();
    void bodyIsLogged();
    void brokenBodyFails_data();
    void brokenBodyFails();
    void otherCodeFails_data();
    void otherCodeFails();
    void failedReplyKeepsTheEarlierOffer_data();
    void failedReplyKeepsTheEarlierOffer();
    void missingOfferEmptiesTheFields_data();
    void missingOfferEmptiesTheFields();
    void stringsOfAnotherTypeAreEmpty_data();
    void stringsOfAnotherTypeAreEmpty();
    void numbersAreReadAsIntegers_data();
    void numbersAreReadAsIntegers();
    void notesAreThoseOfTheLanguage_data();
    void notesAreThoseOfTheLanguage();
    void hugeReplyIsTakenOver();
    void unusualTextsAreTakenOver_data();
    void unusualTextsAreTakenOver();
    void lastOfRepeatedKeysCounts();

private:
    QStringList Messages() const { return m_log->Messages(); }

    std::unique_ptr<TestHome> m_home;
    std::unique_ptr<LogCapture> m_log;
};

namespace
{

/// A successful reply with these members of "biz".
QByteArray Success(const QByteArray &members)
{
    return "{\"code\":\"000000\",\"desc\":\"ok\",\"biz\":{" + members + "}}";
}

int Parse(const QByteArray &body)
{
    return Global::instance.ParseServiceReply(body);
}

/// The fields of an offer, in the order in which they are stored.
QStringList OfferTexts()
{
    const Global &global = Global::instance;
    return {global.id,
            global.update,
            global.latestVersion,
            global.latestVersionUrl,
            global.latestVersionInfo,
            global.md5,
            global.sha1};
}

void FillWithEarlierOffer()
{
    Global &global = Global::instance;
    global.code = QStringLiteral("earlier code");
    global.desc = QStringLiteral("earlier desc");
    global.id = QStringLiteral("earlier id");
    global.update = QStringLiteral("earlier update");
    global.latestVersion = QStringLiteral("earlier version");
    global.latestVersionUrl = QStringLiteral("earlier url");
    global.latestVersionInfo = QStringLiteral("earlier & notes");
    global.md5 = QStringLiteral("earlier md5");
    global.sha1 = QStringLiteral("earlier sha1");
    global.packageSize = 11;
    global.updateType = 12;
}

QStringList EarlierTexts()
{
    return {QStringLiteral("earlier id"),      QStringLiteral("earlier update"),
            QStringLiteral("earlier version"), QStringLiteral("earlier url"),
            QStringLiteral("earlier & notes"), QStringLiteral("earlier md5"),
            QStringLiteral("earlier sha1")};
}

} // namespace

void TestServiceReply::init()
{
    m_home = std::make_unique<TestHome>();
    m_log = std::make_unique<LogCapture>();
}

void TestServiceReply::cleanup()
{
    m_log.reset();
    m_home.reset();
}

void TestServiceReply::everyFieldIsTakenOver()
{
    FillWithEarlierOffer();
    Global::instance.language = QStringLiteral("en");
    const QByteArray body =
        u8"{\"code\":\"000000\",\"desc\":\"成功\",\"more\":[1,2],\"biz\":{\"id\":\"4711\","
        u8"\"update\":\"1\",\"latestVersion\":\"2.1.3\",\"latestVersionUrl\":"
        u8"\"https://packages.example/a/Package.zip\",\"latestVersionInfo\":\"修复&Fixes\","
        u8"\"md5\":\"900150983cd24fb0d6963f7d28e17f72\",\"sha1\":\"a9993e36\","
        u8"\"packageSize\":31457280,\"updateType\":1,\"unknown\":{}}}";

    QCOMPARE(Parse(body), 0);

    const Global &global = Global::instance;
    QCOMPARE(global.code, QStringLiteral("000000"));
    QCOMPARE(global.desc, QStringLiteral("成功"));
    QCOMPARE(global.id, QStringLiteral("4711"));
    QCOMPARE(global.update, QStringLiteral("1"));
    QCOMPARE(global.latestVersion, QStringLiteral("2.1.3"));
    QCOMPARE(global.latestVersionUrl, QStringLiteral("https://packages.example/a/Package.zip"));
    QCOMPARE(global.latestVersionInfo, QStringLiteral("Fixes"));
    QCOMPARE(global.md5, QStringLiteral("900150983cd24fb0d6963f7d28e17f72"));
    QCOMPARE(global.sha1, QStringLiteral("a9993e36"));
    QCOMPARE(global.packageSize, qint64(31457280));
    QCOMPARE(global.updateType, 1);
    QCOMPARE(Messages().size(), 1);
}

void TestServiceReply::bodyIsLogged_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("line");
    const auto row = [](const char *tag, const QByteArray &body, const char *text) {
        QTest::newRow(tag) << body << LogLine::Answer(QString::fromUtf8(text));
    };
    row("quotes", "{\"code\":\"1\"}", "\"{\\\"code\\\":\\\"1\\\"}\"");
    row("Chinese", u8"{\"code\":\"错\"}", u8"\"{\\\"code\\\":\\\"错\\\"}\"");
    row("line breaks", "{\r\n}", "\"{\\r\\n}\"");
    row("back-slashes", "{\"code\":\"\\\\\"}", "\"{\\\"code\\\":\\\"\\\\\\\\\\\"}\"");
    row("no JSON", "<html>", "\"<html>\"");
    row("empty", "", "\"\"");
    row("bytes that are no text",
        "a\xff"
        "b",
        u8"\"a\uFFFDb\"");
}

void TestServiceReply::bodyIsLogged()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, line);
    QCOMPARE(Parse(body), -1);
    QCOMPARE(Messages().value(0), line);
    QCOMPARE(Messages().size(), 2);
}

void TestServiceReply::brokenBodyFails_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("errorCode");

    QTest::newRow("empty") << QByteArray("") << 5;
    QTest::newRow("blank") << QByteArray(" \r\n\t") << 5;
    QTest::newRow("null bytes") << QByteArray(16, '\0') << 5;
    QTest::newRow("page of a proxy") << QByteArray("<html></html>") << 5;
    QTest::newRow("bare text") << QByteArray("\"000000\"") << 5;
    QTest::newRow("bare number") << QByteArray("1") << 5;
    QTest::newRow("cut off after a text") << QByteArray("{\"code\":\"000000\"") << 10;
    QTest::newRow("cut off after a brace") << QByteArray("{") << 1;
    QTest::newRow("cut off in a text") << QByteArray("{\"code\":\"0000") << 10;
    QTest::newRow("colon missing") << QByteArray("{\"code\" \"000000\"}") << 2;
    QTest::newRow("array not closed") << QByteArray("[1,2") << 6;
    QTest::newRow("unknown word") << QByteArray("{\"code\":yes}") << 7;
    QTest::newRow("comma before the end") << QByteArray("{\"code\":\"000000\",}") << 11;
    QTest::newRow("more text at the end") << QByteArray("{\"code\":\"000000\"} x") << 14;
    QTest::newRow("two documents") << Success("") + Success("") << 14;
    QTest::newRow("bad escape") << QByteArray("{\"code\":\"\\u00zz\"}") << 8;
    QTest::newRow("Latin-1") << QByteArray("{\"code\":\"000000\",\"desc\":\"\xe9t\xe9\"}") << 9;
    QTest::newRow("cut off in a character") << QByteArray("{\"desc\":\"\xe6\x88\"}") << 9;
    QTest::newRow("UTF-16") << QByteArray("{\0}\0", 4) << 1;
    QTest::newRow("arrays nested deeply") << QByteArray(100000, '[') << 12;
    QTest::newRow("objects nested deeply") << QByteArray("{\"a\":").repeated(100000) << 12;
    QTest::newRow("complete but nested deeply")
        << Success("\"x\":" + QByteArray(5000, '[') + QByteArray(5000, ']')) << 12;
}

void TestServiceReply::brokenBodyFails()
{
    QFETCH(QByteArray, body);
    QFETCH(int, errorCode);
    FillWithEarlierOffer();
    QCOMPARE(Parse(body), -1);
    QCOMPARE(Messages().mid(1), QStringList(LogLine::AnswerDamaged(errorCode)));
    QCOMPARE(Global::instance.code, QStringLiteral("earlier code"));
    QCOMPARE(Global::instance.desc, QStringLiteral("earlier desc"));
    QCOMPARE(OfferTexts(), EarlierTexts());
}

void TestServiceReply::otherCodeFails_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("desc");
    const QString none;
    QTest::newRow("empty object") << QByteArray("{}") << none << none;
    QTest::newRow("array") << QByteArray("[]") << none << none;
    QTest::newRow("array of a good reply") << QByteArray('[' + Success("") + ']') << none << none;
    QTest::newRow("error code") << QByteArray("{\"code\":\"100001\",\"desc\":\"no device\"}")
                                << QStringLiteral("100001") << QStringLiteral("no device");
    QTest::newRow("number 0") << QByteArray("{\"code\":0,\"desc\":\"d\"}") << none
                              << QStringLiteral("d");
    QTest::newRow("null") << QByteArray("{\"code\":null}") << none << none;
    QTest::newRow("object") << QByteArray("{\"code\":{\"code\":\"000000\"}}") << none << none;
    QTest::newRow("list") << QByteArray("{\"code\":[\"000000\"]}") << none << none;
    QTest::newRow("true") << QByteArray("{\"code\":true}") << none << none;
    QTest::newRow("too short") << QByteArray("{\"code\":\"00000\"}") << QStringLiteral("00000")
                               << none;
    QTest::newRow("too long") << QByteArray("{\"code\":\"0000000\"}") << QStringLiteral("0000000")
                              << none;
    QTest::newRow("blank at the end")
        << QByteArray("{\"code\":\"000000 \"}") << QStringLiteral("000000 ") << none;
    QTest::newRow("letter O") << QByteArray("{\"code\":\"OOOOOO\"}") << QStringLiteral("OOOOOO")
                              << none;
    QTest::newRow("key in upper case")
        << QByteArray("{\"CODE\":\"000000\",\"Code\":\"000000\"}") << none << none;
    QTest::newRow("code inside the offer")
        << QByteArray("{\"biz\":{\"code\":\"000000\"}}") << none << none;
}

void TestServiceReply::otherCodeFails()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, code);
    QFETCH(QString, desc);
    FillWithEarlierOffer();
    QCOMPARE(Parse(body), -1);
    QCOMPARE(Messages().mid(1), QStringList(LogLine::AnswerRefused(code)));
    QCOMPARE(Global::instance.code, code);
    QCOMPARE(Global::instance.desc, desc);
}

void TestServiceReply::failedReplyKeepsTheEarlierOffer_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("not JSON") << QByteArray("oops");
    QTest::newRow("error code") << QByteArray(
        "{\"code\":\"100001\",\"biz\":{\"id\":\"1\",\"update\":\"1\",\"packageSize\":7,"
        "\"updateType\":8}}");
}

void TestServiceReply::failedReplyKeepsTheEarlierOffer()
{
    QFETCH(QByteArray, body);
    FillWithEarlierOffer();
    QCOMPARE(Parse(body), -1);
    QCOMPARE(OfferTexts(), EarlierTexts());
    QCOMPARE(Global::instance.packageSize, qint64(11));
    QCOMPARE(Global::instance.updateType, 12);
}

void TestServiceReply::missingOfferEmptiesTheFields_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("no offer") << QByteArray("{\"code\":\"000000\"}");
    QTest::newRow("empty offer") << Success("");
    QTest::newRow("null") << QByteArray("{\"code\":\"000000\",\"biz\":null}");
    QTest::newRow("text") << QByteArray("{\"code\":\"000000\",\"biz\":\"{}\"}");
    QTest::newRow("list") << QByteArray(
        "{\"code\":\"000000\",\"biz\":[{\"id\":\"1\",\"update\":\"1\"}]}");
    QTest::newRow("keys outside the offer")
        << QByteArray("{\"code\":\"000000\",\"id\":\"1\",\"packageSize\":7,\"updateType\":1}");
    QTest::newRow("keys in another case")
        << Success("\"ID\":\"1\",\"Update\":\"1\",\"latestversion\":\"2\",\"PackageSize\":7,"
                   "\"updatetype\":1");
}

void TestServiceReply::missingOfferEmptiesTheFields()
{
    QFETCH(QByteArray, body);
    FillWithEarlierOffer();
    QCOMPARE(Parse(body), 0);
    QCOMPARE(OfferTexts(), QStringList({QString(), QString(), QString(), QString(), QString(),
                                        QString(), QString()}));
    QCOMPARE(Global::instance.packageSize, qint64(0));
    QCOMPARE(Global::instance.updateType, 0);
    QCOMPARE(Messages().size(), 1);
}

void TestServiceReply::stringsOfAnotherTypeAreEmpty_data()
{
    QTest::addColumn<QByteArray>("value");
    for (const char *value : {"0", "1.5", "true", "null", "[\"1\"]", "{\"a\":\"1\"}"})
        QTest::newRow(value) << QByteArray(value);
}

void TestServiceReply::stringsOfAnotherTypeAreEmpty()
{
    QFETCH(QByteArray, value);
    FillWithEarlierOffer();
    QByteArray members;
    for (const char *key :
         {"id", "update", "latestVersion", "latestVersionUrl", "latestVersionInfo", "md5", "sha1"})
        members += '"' + QByteArray(key) + "\":" + value + ',';
    members.chop(1);

    QCOMPARE(Parse("{\"code\":\"000000\",\"desc\":" + value + ",\"biz\":{" + members + "}}"), 0);
    QCOMPARE(OfferTexts(), QStringList({QString(), QString(), QString(), QString(), QString(),
                                        QString(), QString()}));
    QCOMPARE(Global::instance.desc, QString());
}

void TestServiceReply::numbersAreReadAsIntegers_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<int>("number");
    QTest::newRow("0") << QByteArray("0") << 0;
    QTest::newRow("1") << QByteArray("1") << 1;
    QTest::newRow("-1") << QByteArray("-1") << -1;
    QTest::newRow("300 MiB") << QByteArray("314572800") << 314572800;
    QTest::newRow("largest") << QByteArray("2147483647") << 2147483647;
    QTest::newRow("one beyond") << QByteArray("2147483648") << 0;
    QTest::newRow("smallest") << QByteArray("-2147483648") << (-2147483647 - 1);
    QTest::newRow("one below") << QByteArray("-2147483649") << 0;
    QTest::newRow("5 GiB") << QByteArray("5368709120") << 0;
    QTest::newRow("beyond 64 bits") << QByteArray("99999999999999999999999") << 0;
    QTest::newRow("huge exponent") << QByteArray("1e300") << 0;
    QTest::newRow("fraction") << QByteArray("1.5") << 0;
    QTest::newRow("small fraction") << QByteArray("0.999") << 0;
    QTest::newRow("whole with a point") << QByteArray("3.0") << 3;
    QTest::newRow("whole with an exponent") << QByteArray("1e3") << 1000;
    QTest::newRow("text") << QByteArray("\"1\"") << 0;
    QTest::newRow("true") << QByteArray("true") << 0;
    QTest::newRow("null") << QByteArray("null") << 0;
    QTest::newRow("list") << QByteArray("[1]") << 0;
    QTest::newRow("object") << QByteArray("{}") << 0;
}

void TestServiceReply::numbersAreReadAsIntegers()
{
    QFETCH(QByteArray, value);
    QFETCH(int, number);
    FillWithEarlierOffer();
    QCOMPARE(Parse(Success("\"packageSize\":" + value)), 0);
    QCOMPARE(Global::instance.packageSize, qint64(number));
    QCOMPARE(Global::instance.updateType, 0);

    QCOMPARE(Parse(Success("\"updateType\":" + value)), 0);
    QCOMPARE(Global::instance.updateType, number);
    QCOMPARE(Global::instance.packageSize, qint64(0));
}

void TestServiceReply::notesAreThoseOfTheLanguage_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("sent");
    QTest::addColumn<QString>("shown");
    const auto row = [](const char *tag, const char *language, const char *sent,
                        const char *shown) {
        QTest::newRow(tag) << QString::fromUtf8(language) << QString::fromUtf8(sent)
                           << QString::fromUtf8(shown);
    };
    const char *const both = u8" 修复 &  Some fixes \\n";
    row("Chinese, as sent", "zh", both, u8" 修复 ");
    row("English, trimmed", "en", both, "Some fixes");
    row("no language gives English notes", "", both, "Some fixes");
    row("EN", "EN", both, "Some fixes");
    row("zh in upper case gives English notes", "ZH", both, "Some fixes");
    row("zh_CN gives English notes", "zh_CN", both, "Some fixes");
    row("zh with a blank gives English notes", "zh ", both, "Some fixes");
    row("another language gives English notes", "fr", both, "Some fixes");

    row("two blanks and one after, English", "en", u8"中文&  text ", "text");
    row("two blanks and one after, Chinese", "zh", u8"中文&  text ", u8"中文");
    row("three parts, English", "en", "a& b &c", "b");
    row("three parts, Chinese", "zh", " a & b &c", " a ");
    row("inner white space stays", "en", "a&\\t one\\n two \\r\\n", "one\n two");

    row("no separator, English", "en", u8"  只有中文  ", u8"  只有中文  ");
    row("no separator, Chinese", "zh", "  English only  ", "  English only  ");
    row("nothing before it, Chinese", "zh", "&notes", "");
    row("nothing before it, English", "en", "&notes", "notes");
    row("nothing after it, English", "en", "notes&", "");
    row("nothing after it, Chinese", "zh", "notes&", "notes");
    row("the separator alone, English", "en", "&", "");
    row("the separator alone, Chinese", "zh", "&", "");
    row("only separators, English", "en", "&&&", "");
    row("entity splits as well", "en", "a &amp; b", "amp; b");
    row("full-width ampersand is none", "en", u8"甲＆乙", u8"甲＆乙");
    row("empty", "en", "", "");
}

void TestServiceReply::notesAreThoseOfTheLanguage()
{
    QFETCH(QString, language);
    QFETCH(QString, sent);
    QFETCH(QString, shown);
    Global::instance.language = language;
    QCOMPARE(Parse(Success("\"latestVersionInfo\":\"" + sent.toUtf8() + '"')), 0);
    QCOMPARE(Global::instance.latestVersionInfo, shown);
    QCOMPARE(Global::instance.language, language);
}

void TestServiceReply::hugeReplyIsTakenOver()
{
    Global::instance.language = QStringLiteral("en");
    const QByteArray notes(4 * 1024 * 1024, 'n');
    QCOMPARE(Parse(Success("\"latestVersionInfo\":\"zh&" + notes + "\",\"id\":\"7\"")), 0);
    QCOMPARE(Global::instance.latestVersionInfo.size(), notes.size());
    QCOMPARE(Global::instance.id, QStringLiteral("7"));

    const QByteArray separators(1024 * 1024, '&');
    QCOMPARE(Parse(Success("\"latestVersionInfo\":\"" + separators + "\"")), 0);
    QCOMPARE(Global::instance.latestVersionInfo, QString());
}

void TestServiceReply::unusualTextsAreTakenOver_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QString>("stored");
    QTest::newRow("escapes") << QByteArray("\\u4e2d\\n\\\"\\\\\\/")
                             << QString::fromUtf8(u8"中\n\"\\/");
    QTest::newRow("outside the basic plane") << QByteArray(u8"😀") << QString::fromUtf8(u8"😀");
    QTest::newRow("escaped pair") << QByteArray("\\ud83d\\ude00") << QString::fromUtf8(u8"😀");
    QTest::newRow("zero character") << QByteArray("a\\u0000b") << QStringLiteral("a\0b");
    QTest::newRow("placeholder") << QByteArray("%1%2%n") << QStringLiteral("%1%2%n");
    QTest::newRow("half of a pair") << QByteArray("\\ud83d") << QString(QChar(0xd83d));
}

void TestServiceReply::unusualTextsAreTakenOver()
{
    QFETCH(QByteArray, sent);
    QFETCH(QString, stored);
    QCOMPARE(Parse(Success("\"id\":\"" + sent + "\",\"md5\":\"" + sent + '"')), 0);
    QCOMPARE(Global::instance.id, stored);
    QCOMPARE(Global::instance.md5, stored);
}

void TestServiceReply::lastOfRepeatedKeysCounts()
{
    QCOMPARE(Parse("{\"code\":\"1\",\"code\":\"000000\",\"biz\":{\"id\":\"1\",\"id\":\"2\"}}"), 0);
    QCOMPARE(Global::instance.id, QStringLiteral("2"));
}

QTEST_GUILESS_MAIN(TestServiceReply)
#include "tst_servicereply.moc"
