// SPDX-License-Identifier: MIT
#include "release/publish/statistics/accesslog.h"

#include <QTest>

Q_DECLARE_METATYPE(AccessLogEntry::Kind)

namespace
{

constexpr AccessLogEntry::Kind other = AccessLogEntry::Other;
constexpr AccessLogEntry::Kind check = AccessLogEntry::Check;
constexpr AccessLogEntry::Kind download = AccessLogEntry::Download;
constexpr AccessLogEntry::Kind head = AccessLogEntry::PackageHead;

// Lines as nginx writes them.
const char *const checkLine =
    R"({"time":"2026-11-21T05:31:49+00:00","address":"192.0.2.7","method":"POST","path":"/check",)"
    R"("status":"200","bytes":715,"seconds":0.001,"completed":"OK","version":"2.0.1",)"
    R"("answer":"2.1.3","package":"Client-2.1.3.zip","tls":"TLSv1.3"})";
const char *const downloadLine =
    R"({"time":"2026-11-21T05:31:51+00:00","address":"192.0.2.7","method":"GET",)"
    R"("path":"/packages/Client-2.1.3.zip","status":"200","bytes":62914560,"seconds":2.500,)"
    R"("completed":"","version":"","answer":"","package":"","tls":"TLSv1.3"})";

constexpr qint64 firstSecond = 1795239109; // of checkLine: date -u -d '2026-11-21 05:31:49' +%s

/// A copy of an entry with its own texts.
struct Entry {
    bool isParsed;
    AccessLogEntry entry;
    QByteArray product;
    QByteArray package;
    QByteArray version;
    QByteArray answer;
};

QByteArray Copy(std::string_view text)
{
    return QByteArray(text.data(), int(text.size()));
}

Entry Parse(const QByteArray &line)
{
    AccessLogParser parser;
    AccessLogEntry entry;
    const bool isParsed = parser.Parse({line.constData(), size_t(line.size())}, entry);
    return {isParsed,          entry, Copy(entry.product), Copy(entry.package), Copy(entry.version),
            Copy(entry.answer)};
}

QByteArray LineOf(const QByteArray &method, const QByteArray &path)
{
    return R"({"time":"2026-11-21T05:31:49+00:00","method":")" + method + R"(","path":")" + path +
           R"(","status":"200"})";
}

} // namespace

class TestAccessLog : public QObject
{
    Q_OBJECT

private slots:
    void checkIsRead();
    void downloadIsRead();
    void formOfTheLineDoesNotMatter_data();
    void formOfTheLineDoesNotMatter();
    void whatIsNoLineIsDamaged_data();
    void whatIsNoLineIsDamaged();
    void everyHalfOfALineIsDamaged();
    void requests_data();
    void requests();
    void textsAreDecoded();
    void connectionWithoutStatusIsAnEntry();
    void times_data();
    void times();
    void networks_data();
    void networks();
    void textsWithoutNetwork_data();
    void textsWithoutNetwork();
};

void TestAccessLog::checkIsRead()
{
    const Entry read = Parse(checkLine);
    QVERIFY(read.isParsed);
    QCOMPARE(read.entry.kind, check);
    QCOMPARE(read.entry.time, firstSecond);
    QCOMPARE(read.entry.network, NetworkOf("192.0.2.7"));
    QCOMPARE(read.entry.status, 200);
    QVERIFY(read.entry.completed);
    QCOMPARE(read.entry.bytes, 715);
    QCOMPARE(read.version, "2.0.1");
    QCOMPARE(read.answer, "2.1.3");
    QCOMPARE(read.package, "Client-2.1.3.zip");
    QCOMPARE(read.product, "");
}

void TestAccessLog::downloadIsRead()
{
    const Entry read = Parse(downloadLine);
    QVERIFY(read.isParsed);
    QCOMPARE(read.entry.kind, download);
    QCOMPARE(read.entry.time, firstSecond + 2);
    QVERIFY(!read.entry.completed);
    QCOMPARE(read.entry.bytes, 62914560);
    QCOMPARE(read.package, "Client-2.1.3.zip");
}

void TestAccessLog::formOfTheLineDoesNotMatter_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("spaces")
        << QByteArray(checkLine).replace(R"(,")", R"( , ")").replace(":\"", ": \"");
    QTest::newRow("line break of Windows") << QByteArray(checkLine) + '\r';
    QTest::newRow("unknown keys") << QByteArray(checkLine).replace(
        R"("tls":"TLSv1.3")", R"("more":{"a":[1,null]},"less":-1.5e3)");
    QTest::newRow("escapes") << QByteArray(checkLine).replace("2.0.1", R"(2\u002e0.1)");
    QTest::newRow("other order") << QByteArray(
        R"({"answer":"2.1.3","bytes":715,"version":"2.0.1","status":"200","path":"/check",)"
        R"("method":"POST","package":"Client-2.1.3.zip","address":"192.0.2.7",)"
        R"("completed":"OK","time":"2026-11-21T05:31:49+00:00"})");
}

void TestAccessLog::formOfTheLineDoesNotMatter()
{
    QFETCH(QByteArray, line);
    const Entry expected = Parse(checkLine);
    const Entry read = Parse(line);
    QVERIFY(read.isParsed);
    QCOMPARE(read.entry.kind, expected.entry.kind);
    QCOMPARE(read.entry.time, expected.entry.time);
    QCOMPARE(read.entry.network, expected.entry.network);
    QCOMPARE(read.entry.status, expected.entry.status);
    QCOMPARE(read.entry.completed, expected.entry.completed);
    QCOMPARE(read.entry.bytes, expected.entry.bytes);
    QCOMPARE(read.version, expected.version);
    QCOMPARE(read.answer, expected.answer);
    QCOMPARE(read.package, expected.package);
}

void TestAccessLog::whatIsNoLineIsDamaged_data()
{
    QTest::addColumn<QByteArray>("line");
    const QByteArray whole = checkLine;
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("zero bytes of a power cut") << QByteArray(100, '\0');
    QTest::newRow("another format") << QByteArray(
        R"(192.0.2.7 - - [21/Nov/2026:05:31:49 +0000] "POST /check HTTP/1.1" 200 715)");
    QTest::newRow("an array") << QByteArray(R"(["time"])");
    QTest::newRow("half a line and a whole one") << whole.left(70) + whole;
    QTest::newRow("a whole line and half of one") << whole + whole.left(70);
    QTest::newRow("no time") << QByteArray(whole).replace("\"time\"", "\"then\"");
    QTest::newRow("no date") << QByteArray(whole).replace("2026-11-21", "2026-02-30");
    QTest::newRow("no status") << QByteArray(whole).replace("\"200\"", "\"\"");
}

void TestAccessLog::whatIsNoLineIsDamaged()
{
    QFETCH(QByteArray, line);
    QVERIFY(!Parse(line).isParsed);
}

void TestAccessLog::everyHalfOfALineIsDamaged()
{
    const QByteArray line = checkLine;
    for (int size = 0; size < line.size(); ++size) {
        QVERIFY2(!Parse(line.left(size)).isParsed, line.left(size));
        if (size > 0)
            QVERIFY2(!Parse(line.mid(size)).isParsed, line.mid(size));
    }
}

void TestAccessLog::requests_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<AccessLogEntry::Kind>("kind");
    QTest::addColumn<QByteArray>("product");
    QTest::addColumn<QByteArray>("package");

    const auto row = [](const char *method, const char *path, AccessLogEntry::Kind kind,
                        const char *product = "", const char *package = "") {
        QTest::addRow("%s %s", method, path) << QByteArray(method) << QByteArray(path) << kind
                                             << QByteArray(product) << QByteArray(package);
    };
    row("POST", "/check", check);
    row("POST", "/check?now", check);
    row("POST", "//check", check);
    row("POST", "/desk/check", check, "desk");
    row("POST", "/de%73k/check", check, "desk");
    row("GET", "/check", other);
    row("POST", "/check/", other);
    row("POST", "/check/none.json", other);
    row("POST", "/a/b/check", other);
    row("POST", "/Check", other);
    row("GET", "/packages/a.zip", download, "", "a.zip");
    row("GET", "/packages/a.zip?b=/c/packages/d.zip", download, "", "a.zip");
    row("GET", "/packages/a%20b%2Bc.zip", download, "", "a b+c.zip");
    row("GET", "/packages/%E6%96%B0.zip", download, "", "\xE6\x96\xB0.zip");
    row("GET", "/packages/100%.zip", download, "", "100%.zip");
    row("GET", "/packages/%", download, "", "%");
    row("GET", "/desk/packages/a.zip", download, "desk", "a.zip");
    row("GET", "/packages/packages", download, "", "packages");
    row("GET", "/packages/check", download, "", "check");
    row("HEAD", "/packages/a.zip", head, "", "a.zip");
    row("POST", "/packages/a.zip", other);
    row("GET", "/packages/", other);
    row("GET", "/packages", other);
    row("GET", "/packages/a%2Fb.zip", other);
    row("GET", "/packages/a/b.zip", other);
    row("GET", "/health", other);
    row("GET", "/", other);
    row("GET", "", other);
    row("", "", other);
    row("GET", "packages/a.zip", other);
}

void TestAccessLog::requests()
{
    QFETCH(QByteArray, method);
    QFETCH(QByteArray, path);
    const Entry read = Parse(LineOf(method, path));
    QVERIFY(read.isParsed);
    QTEST(read.entry.kind, "kind");
    if (read.entry.kind == other)
        return;
    QTEST(read.product, "product");
    QTEST(read.package, "package");
}

void TestAccessLog::textsAreDecoded()
{
    const Entry read =
        Parse(QByteArray(downloadLine).replace("/Client-2.1.3.zip", R"(/a\"b\\c%21.zip)"));
    QCOMPARE(read.package, R"(a"b\c!.zip)");
    QCOMPARE(read.entry.bytes, 62914560);
}

void TestAccessLog::connectionWithoutStatusIsAnEntry()
{
    const Entry read = Parse(QByteArray(checkLine).replace("\"200\"", "\"000\""));
    QVERIFY(read.isParsed);
    QCOMPARE(read.entry.kind, check);
    QCOMPARE(read.entry.status, 0);
}

void TestAccessLog::times_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::newRow("2026-11-21T05:31:49+00:00") << firstSecond;
    QTest::newRow("2026-11-21T05:31:49Z") << firstSecond;
    QTest::newRow("2026-11-21T13:31:49+08:00") << firstSecond;
    QTest::newRow("2026-11-20T22:01:49-07:30") << firstSecond;
    QTest::newRow("2028-02-29T00:00:00+00:00") << qint64(1835395200);
    QTest::newRow("1970-01-02T00:00:00+00:00") << qint64(86400);
    for (const char *text :
         {"", "2026-11-21", "2026-11-21T05:31:49", "2026-11-21 05:31:49+00:00",
          "2026-11-21T05:31:49+0000", "2026-11-21T05:31:49+00:00Z", "2026-13-21T05:31:49+00:00",
          "2027-02-29T05:31:49+00:00", "x026-11-21T05:31:49+00:00", "0000-00-00T00:00:00+00:00"})
        QTest::newRow(text) << qint64(-1);
}

void TestAccessLog::times()
{
    QTEST(SecondsSince1970(QTest::currentDataTag()).value_or(-1), "seconds");
}

void TestAccessLog::networks_data()
{
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<bool>("same");
    QTest::newRow("192.0.2.7") << QByteArray("192.0.2.7") << true;
    QTest::newRow("192.0.2.8") << QByteArray("192.0.2.7") << false;
    QTest::newRow("0.0.0.0") << QByteArray("::") << false;
    QTest::newRow("::ffff:192.0.2.7") << QByteArray("192.0.2.7") << true;
    QTest::newRow("2001:db8:1:2:3:4:5:6") << QByteArray("2001:db8:1:2:a:b:c:d") << true;
    QTest::newRow("2001:db8:1:2::6") << QByteArray("2001:db8:1:2:a:b:c:d") << true;
    QTest::newRow("2001:db8:1:3::6") << QByteArray("2001:db8:1:2::6") << false;
    QTest::newRow("2001:db8::1") << QByteArray("2001:db8:0:0:a:b:c:d") << true;
    QTest::newRow("2001:db8:1::2:3:4:5") << QByteArray("2001:db8:1:0::9") << true;
    QTest::newRow("2001::4:5:6:7:8:9") << QByteArray("2001:0:4:5::9") << true;
    QTest::newRow("::1") << QByteArray("0:0:0:0:1::") << true;
    QTest::newRow("2001:DB8::1") << QByteArray("2001:db8::1") << true;
}

void TestAccessLog::networks()
{
    QFETCH(QByteArray, second);
    const std::optional<Network> network = NetworkOf(QTest::currentDataTag());
    QVERIFY(network);
    QTEST(network == NetworkOf(second.constData()), "same");
}

void TestAccessLog::textsWithoutNetwork_data()
{
    QTest::addColumn<int>("none");
    for (const char *text :
         {"", "-", "unix:", "192.0.2", "192.0.2.7.1", "192.0.2.256", "192.0.2.", "host", ":",
          ":::", "1::2::3", "2001:db8", "1:2:3:4:5:6:7:8:9",
          "1:2:3:4:5:6:7:8::", "12345::", "1:2:", "g::", "::ffff:192.0.2", "2001:db8::192.0.2.7"})
        QTest::newRow(text) << 0;
}

void TestAccessLog::textsWithoutNetwork()
{
    QVERIFY(!NetworkOf(QTest::currentDataTag()));
}

QTEST_APPLESS_MAIN(TestAccessLog)
#include "tst_accesslog.moc"
