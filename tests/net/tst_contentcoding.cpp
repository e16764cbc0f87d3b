// SPDX-License-Identifier: MIT
#include "net/contentcoding.h"

#include <QTest>

class TestContentCoding : public QObject
{
    Q_OBJECT

private slots:
    void bodyIsUnpacked_data();
    void bodyIsUnpacked();
    void damagedBodyIsRefused_data();
    void damagedBodyIsRefused();
    void limitCountsWhatIsUnpacked();
};

namespace
{

constexpr qint64 kPlenty = 1 << 20;

QByteArray Text()
{
    return QByteArray("{\"code\": \"000000\"} ").repeated(9000);
}

/// The zlib format: the output of qCompress() without its length.
QByteArray Zlib(const QByteArray &plain)
{
    return qCompress(plain).mid(4);
}

/// The raw format: without the header of two bytes and the checksum of four.
QByteArray Raw(const QByteArray &plain)
{
    const QByteArray zlib = Zlib(plain);
    return zlib.mid(2, zlib.size() - 6);
}

/// "{}" in the gzip format.
QByteArray GzippedBraces()
{
    return QByteArray::fromHex("1f8b0800000000000003abae050043bfa6a302000000");
}

} // namespace

void TestContentCoding::bodyIsUnpacked_data()
{
    QTest::addColumn<QByteArray>("coding");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("content");
    const auto row = [](const char *name, const char *coding, const QByteArray &body,
                        const QByteArray &content) {
        QTest::newRow(name) << QByteArray(coding) << body << content;
    };
    row("not packed", "", Text(), Text());
    row("as it is", "identity", Text(), Text());
    row("another coding", "br", Text(), Text());
    row("gzip", "gzip", GzippedBraces(), "{}");
    row("in capitals, with blanks", " GZIP ", GzippedBraces(), "{}");
    row("deflate", "deflate", Zlib(Text()), Text());
    row("deflate without its wrapping", "deflate", Raw(Text()), Text());
    row("nothing in it", "deflate", QByteArray::fromHex("789c030000000001"), QByteArray());
}

void TestContentCoding::bodyIsUnpacked()
{
    QFETCH(QByteArray, coding);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, content);
    QVERIFY(DecodeContent(coding, kPlenty, body));
    QCOMPARE(body, content);
}

void TestContentCoding::damagedBodyIsRefused_data()
{
    QTest::addColumn<QByteArray>("coding");
    QTest::addColumn<QByteArray>("body");
    const auto row = [](const char *name, const char *coding, const QByteArray &body) {
        QTest::newRow(name) << QByteArray(coding) << body;
    };
    const QByteArray zlib = Zlib(Text());
    QByteArray flipped = zlib;
    flipped[flipped.size() - 1] = char(~flipped.at(flipped.size() - 1));
    row("empty", "gzip", QByteArray());
    row("text", "gzip", "{\"code\": \"000000\"}");
    row("text as deflate", "deflate", "{\"code\": \"000000\"}");
    row("cut", "deflate", zlib.left(zlib.size() / 2));
    row("cut before its checksum", "deflate", zlib.left(zlib.size() - 4));
    row("with a wrong checksum", "deflate", flipped);
}

void TestContentCoding::damagedBodyIsRefused()
{
    QFETCH(QByteArray, coding);
    QFETCH(QByteArray, body);
    const QByteArray before = body;
    QVERIFY(!DecodeContent(coding, kPlenty, body));
    QCOMPARE(body, before);
}

void TestContentCoding::limitCountsWhatIsUnpacked()
{
    const qint64 size = Text().size();
    QByteArray body = Zlib(Text());
    QVERIFY(body.size() < size);
    QVERIFY(!DecodeContent("deflate", size - 1, body));
    QVERIFY(DecodeContent("deflate", size, body));
    QCOMPARE(body, Text());
}

QTEST_APPLESS_MAIN(TestContentCoding)
#include "tst_contentcoding.moc"
