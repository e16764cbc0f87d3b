// SPDX-License-Identifier: MIT
#include "release/publish/tree/networkprefix.h"

#include <QTest>

namespace
{

NetworkPrefix Network(const char *text)
{
    NetworkPrefix network;
    if (const Failure failure = NetworkPrefix::Read(QString::fromLatin1(text), network))
        qFatal("%s", qPrintable(failure->message));
    return network;
}

} // namespace

class TestNetworkPrefix : public QObject
{
    Q_OBJECT

private slots:
    void isLookedUpByTheseNames_data();
    void isLookedUpByTheseNames();
    void holdsWhatLiesInIt_data();
    void holdsWhatLiesInIt();
    void wrongOnesAreRefused_data();
    void wrongOnesAreRefused();
};

void TestNetworkPrefix::isLookedUpByTheseNames_data()
{
    QTest::addColumn<QByteArray>("network");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("last");
    const auto row = [](const char *network, int count, const char *first, const char *last) {
        QTest::newRow(network) << QByteArray(network) << count << QString::fromLatin1(first)
                               << QString::fromLatin1(last);
    };
    row("192.0.2.7", 1, "192.0.2.7_32", "192.0.2.7_32");
    row("192.0.2.0/24", 1, "192.0.2_24", "192.0.2_24");
    row("192.0.2.0/23", 2, "192.0.2_24", "192.0.3_24");
    row("192.0.2.128/25", 128, "192.0.2.128_32", "192.0.2.255_32");
    row("172.16.0.0/12", 16, "172.16_16", "172.31_16");
    row("10.0.0.0/8", 1, "10_8", "10_8");
    row("10.0.0.0/8", 1, "10_8", "10_8");
    row("2001:db8::/32", 1, "2001:db8_32", "2001:db8_32");
    row("2001:DB8::/29", 8, "2001:db8_32", "2001:dbf_32");
    row("2001:db8:0:ff00::/56", 256, "2001:db8:0:ff00_64", "2001:db8:0:ffff_64");
    row("2001:db8:fffe::/47", 2, "2001:db8:fffe_48", "2001:db8:ffff_48");
    row("2001:db8::1", 1, "2001:db8::1_128", "2001:db8::1_128");
    row("2001::/20", 4096, "2001:0_32", "2001:fff_32");
}

void TestNetworkPrefix::isLookedUpByTheseNames()
{
    QFETCH(QByteArray, network);
    QFETCH(int, count);
    const QVector<NetworkPrefix> lookups = Network(network.constData()).Lookups();
    QCOMPARE(lookups.size(), count);
    QTEST(lookups.first().Name(), "first");
    QTEST(lookups.last().Name(), "last");
}

void TestNetworkPrefix::holdsWhatLiesInIt_data()
{
    QTest::addColumn<QByteArray>("outer");
    QTest::addColumn<QByteArray>("inner");
    QTest::addColumn<bool>("holds");
    const auto row = [](const char *outer, const char *inner, bool holds) {
        QTest::addRow("%s, %s", outer, inner) << QByteArray(outer) << QByteArray(inner) << holds;
    };
    row("10.0.0.0/8", "10.0.0.0/8", true);
    row("10.0.0.0/8", "10.9.0.0/16", true);
    row("10.9.0.0/16", "10.0.0.0/8", false);
    row("10.0.0.0/8", "11.0.0.0/16", false);
    row("192.0.2.0/23", "192.0.3.255", true);
    row("192.0.2.0/23", "192.0.4.0", false);
    row("2001:db8::/29", "2001:dbf:ffff::/48", true);
    row("2001:db8::/29", "2001:dc0::/48", false);
    row("10.0.0.0/8", "a00::/32", false);
}

void TestNetworkPrefix::holdsWhatLiesInIt()
{
    QFETCH(QByteArray, outer);
    QFETCH(QByteArray, inner);
    QTEST(Network(outer.constData()).Contains(Network(inner.constData())), "holds");
}

void TestNetworkPrefix::wrongOnesAreRefused_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("office") << "\"office\" is not a network; ";
    QTest::newRow("") << "\"\" is not a network; ";
    QTest::newRow("192.0.2") << "\"192.0.2\" is not a network; ";
    QTest::newRow("192.0.2.0/33") << "\"192.0.2.0/33\" is not a network; ";
    QTest::newRow("192.0.2.0/") << "\"192.0.2.0/\" is not a network; ";
    QTest::newRow("192.0.2.0/-1") << "\"192.0.2.0/-1\" is not a network; ";
    QTest::newRow("192.0.2.0/24/24") << "\"192.0.2.0/24/24\" is not a network; ";
    QTest::newRow("2001:db8::/129") << "\"2001:db8::/129\" is not a network; ";
    QTest::newRow("192.0.2.7/24") << "\"192.0.2.7/24\" is an address inside a network; write "
                                     "192.0.2.0/24 ";
    QTest::newRow("2001:db8::1/64") << "\"2001:db8::1/64\" is an address inside a network; ";
    QTest::newRow("2001:db8::/33") << "\"2001:db8::/33\" is too wide; write it as several networks "
                                      "with a length of at least 36";
    QTest::newRow("0.0.0.0/0") << "\"0.0.0.0/0\" is wider than /8; ";
    QTest::newRow("128.0.0.0/7") << "\"128.0.0.0/7\" is wider than /8; ";
    QTest::newRow("::/0") << "\"::/0\" is wider than /16; ";
    QTest::newRow("2000::/15") << "\"2000::/15\" is wider than /16; ";
    QTest::newRow("2001:db8::/96") << "\"2001:db8::/96\" is too wide; ";
}

void TestNetworkPrefix::wrongOnesAreRefused()
{
    QFETCH(QString, line);
    NetworkPrefix network;
    const Failure failure =
        NetworkPrefix::Read(QString::fromLatin1(QTest::currentDataTag()), network);
    QVERIFY(failure);
    QVERIFY2(failure->message.startsWith(line), qPrintable(failure->message));
}

QTEST_APPLESS_MAIN(TestNetworkPrefix)
#include "tst_networkprefix.moc"
