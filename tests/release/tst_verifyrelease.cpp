// SPDX-License-Identifier: MIT
#include "release/publish/tree/indexpage.h"
#include "release/publish/tree/releasetree.h"
#include "release/publish/tree/reply.h"
#include "tests/release/vendor.h"
#include "tests/support/testhome.h"
#include "tests/support/zipmaker.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <functional>

namespace
{

using Change = std::function<void(const Vendor &)>;

/// Adds a row with a release that breaks @p rule, and whose finding contains @p line.
void AddRow(const char *row, const char *rule, const char *line, const Change &change)
{
    QTest::newRow(row) << change << QString::fromLatin1(rule) << QString::fromUtf8(line);
}

QJsonObject OfferOf(const Vendor &vendor)
{
    return QJsonDocument::fromJson(ReadFile(vendor.OfferFile())).object();
}

void WriteJson(const QString &path, const QJsonObject &object)
{
    WriteFile(path, QJsonDocument(object).toJson());
}

/// The offer with @p value for @p key; without the key when the value is undefined.
Change Says(const char *key, const QJsonValue &value)
{
    return [key, value](const Vendor &vendor) {
        QJsonObject answer = OfferOf(vendor);
        QJsonObject biz = answer.value(QLatin1String("biz")).toObject();
        biz.insert(QLatin1String(key), value);
        answer.insert(QStringLiteral("biz"), biz);
        WriteJson(vendor.OfferFile(), answer);
    };
}

Change SaysOutside(const char *file, const char *key, const QJsonValue &value)
{
    return [=](const Vendor &vendor) {
        const QString path = vendor.Tree(QLatin1String(file));
        QJsonObject answer = QJsonDocument::fromJson(ReadFile(path)).object();
        answer.insert(QLatin1String(key), value);
        WriteJson(path, answer);
    };
}

Change Lacks(const char *file)
{
    return [file](const Vendor &vendor) {
        if (!QFile::remove(vendor.Tree(QLatin1String(file))))
            qFatal("there is no %s", file);
    };
}

void WriteList(const Vendor &vendor, const ReleaseList &list)
{
    WriteFile(vendor.Tree(QStringLiteral("check/now/releases.json")), ToJson(list));
    WriteFile(vendor.Tree(QStringLiteral("check/now/SHA256SUMS")), DigestLines(list));
}

/// Writes the answer and the page of the release from @p offer, for the package @p bytes.
void WriteOffer(const Vendor &vendor, Offer offer, const QByteArray &bytes)
{
    const auto digest = [&bytes](QCryptographicHash::Algorithm algorithm) {
        return QString::fromLatin1(QCryptographicHash::hash(bytes, algorithm).toHex());
    };
    offer.package.size = bytes.size();
    offer.package.md5 = digest(QCryptographicHash::Md5);
    offer.package.sha1 = digest(QCryptographicHash::Sha1);
    offer.package.sha256 = digest(QCryptographicHash::Sha256);
    WriteFile(vendor.OfferFile(), OfferReply(offer));
    WriteFile(vendor.Tree(QStringLiteral("check/now/index.html")), IndexPage(offer));
    ReleaseList list = vendor.List();
    list.releases.last().size = offer.package.size;
    list.releases.last().sha256 = offer.package.sha256;
    WriteList(vendor, list);
}

Offer ReadOfferOf(const Vendor &vendor)
{
    Offer offer;
    ReadOffer(ReadFile(vendor.OfferFile()), offer);
    return offer;
}

/// A release with @p bytes as its package, and with a matching answer and page.
void ReplacePackage(const Vendor &vendor, const QByteArray &bytes)
{
    WriteFile(vendor.Package(), bytes);
    WriteOffer(vendor, ReadOfferOf(vendor), bytes);
}

/// A release whose package has the top folder, one file and what @p fill adds.
Change Holds(const std::function<void(ZipMaker &)> &fill)
{
    return [fill](const Vendor &vendor) {
        ZipMaker zip;
        zip.AddFolder(QStringLiteral("Client-2.1.3"));
        zip.AddFile(QStringLiteral("Client-2.1.3/app.txt"), QByteArray(1000, 'x'));
        fill(zip);
        ReplacePackage(vendor, zip.Bytes());
    };
}

/// A release whose package has only what @p fill adds.
Change HoldsOnly(const std::function<void(ZipMaker &)> &fill)
{
    return [fill](const Vendor &vendor) {
        ZipMaker zip;
        fill(zip);
        ReplacePackage(vendor, zip.Bytes());
    };
}

Change HoldsFile(const QString &path)
{
    return Holds([path](ZipMaker &zip) { zip.AddFile(path, "x"); });
}

} // namespace

Q_DECLARE_METATYPE(Change)

class TestVerifyRelease : public QObject
{
    Q_OBJECT

private slots:
    void goodReleases_data();
    void goodReleases();
    void verificationWritesNothing();
    void wrongAnswers_data();
    void wrongAnswers() { FindOneThing(); }
    void wrongTrees_data();
    void wrongTrees() { FindOneThing(); }
    void wrongPackages_data();
    void wrongPackages() { FindOneThing(); }
    void tooManyEntries();
    void everythingIsToldAtOnce();

private:
    static void FindOneThing();
};

void TestVerifyRelease::goodReleases_data()
{
    QTest::addColumn<Change>("change");
    QTest::newRow("as published") << Change([](const Vendor &) {});
    QTest::newRow("beside older packages") << Change([](const Vendor &vendor) {
        WriteFile(vendor.Tree(QStringLiteral("packages/Client-2.0.zip")), "whatever");
    });
    QTest::newRow("made by other tools") << Holds([](ZipMaker &zip) {
        zip.AddFolder(QStringLiteral("Client-2.1.3/d"));
        zip.AddFile(QStringLiteral("Client-2.1.3/d/f"), "stored", ZipMaker::Stored);
        zip.UseDataDescriptor(1);
    });
}

void TestVerifyRelease::goodReleases()
{
    QFETCH(Change, change);
    const Vendor vendor;
    QVERIFY(Publish(vendor.ZipRequest()).refusals.isEmpty());
    change(vendor);
    const Outcome outcome = Verify(vendor);
    QVERIFY2(outcome.refusals.isEmpty(), qPrintable(LinesOf(outcome.refusals)));
    QVERIFY2(outcome.summary.contains(QLatin1String("version 2.1.3 follows every rule")),
             qPrintable(outcome.summary));
}

void TestVerifyRelease::verificationWritesNothing()
{
    const Vendor vendor;
    QVERIFY(Publish(vendor.ZipRequest()).refusals.isEmpty());
    const QMap<QString, QByteArray> before = Snapshot(vendor.Path(QString()));
    QVERIFY(Verify(vendor).refusals.isEmpty());
    QCOMPARE(Snapshot(vendor.Path(QString())), before);
}

void TestVerifyRelease::FindOneThing()
{
    QFETCH(Change, change);
    QFETCH(QString, rule);
    QFETCH(QString, line);
    const Vendor vendor;
    QVERIFY(Publish(vendor.ZipRequest()).refusals.isEmpty());
    change(vendor);
    const Outcome outcome = Verify(vendor);
    QCOMPARE(Rules(outcome.refusals), QStringList(rule));
    const QString &message = outcome.refusals.first().message;
    QVERIFY2(message.contains(line) && message.contains(QLatin1String("; ")), qPrintable(message));
    QVERIFY(outcome.summary.isEmpty());
}

void TestVerifyRelease::wrongAnswers_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("line");

    AddRow("no JSON", "reply", "is not JSON", [](const Vendor &vendor) {
        WriteFile(vendor.OfferFile(), ReadFile(vendor.OfferFile()).chopped(3));
    });
    const char *const offer = "check/answers/2.1.3/Client-2.1.3.zip.json";
    AddRow("code as a number", "reply", "\"code\"", SaysOutside(offer, "code", 0));
    AddRow("another code", "reply", "\"code\"", SaysOutside(offer, "code", QStringLiteral("0")));
    AddRow("desc no text", "reply", "\"desc\"", SaysOutside(offer, "desc", 1));
    AddRow("biz as a text", "reply", "\"biz\"", SaysOutside(offer, "biz", QStringLiteral("{}")));

    AddRow("nothing in it", "reply", "\"biz\"", SaysOutside(offer, "biz", QJsonObject()));

    for (const char *key : {"id", "latestVersion", "latestVersionUrl", "latestVersionInfo"}) {
        const QByteArray quoted = '"' + QByteArray(key) + '"';
        for (const QJsonValue &value : {QJsonValue(), QJsonValue(1), QJsonValue(QString())}) {
            const QByteArray row = key + QByteArray(" of type ") + QByteArray::number(value.type());
            AddRow(row.constData(), "reply", quoted.constData(), Says(key, value));
        }
    }
    AddRow("update as a number", "reply", "\"update\"", Says("update", 1));
    AddRow("update that says none", "reply", "\"update\"", Says("update", QStringLiteral("0")));
    AddRow("update that means nothing", "reply", "\"update\"", Says("update", QStringLiteral("3")));
    AddRow("size as a text", "reply", "\"packageSize\"",
           Says("packageSize", QStringLiteral("1000")));
    AddRow("size of 2 GiB", "reply", "\"packageSize\"", Says("packageSize", 2147483648.0));
    AddRow("size with a fraction", "reply", "\"packageSize\"", Says("packageSize", 1.5));
    AddRow("another size", "digest", "the package's size", Says("packageSize", 1));
    AddRow("type as a text", "reply", "\"updateType\"", Says("updateType", QStringLiteral("1")));
    AddRow("type that means nothing", "reply", "\"updateType\"", Says("updateType", 2));
    const QString md5(32, QLatin1Char('a'));
    const QString sha1(40, QLatin1Char('a'));
    AddRow("MD5 in upper case", "reply", "\"md5\"", Says("md5", md5.toUpper()));
    AddRow("MD5 cut", "reply", "\"md5\"", Says("md5", md5.chopped(1)));
    AddRow("MD5 missing", "reply", "\"md5\"", Says("md5", QJsonValue::Undefined));
    AddRow("SHA-1 in upper case", "reply", "\"sha1\"", Says("sha1", sha1.toUpper()));
    AddRow("another MD5", "digest", "the package's MD5", Says("md5", md5));
    AddRow("another SHA-1", "digest", "the package's SHA-1", Says("sha1", sha1));
    AddRow("address of another file", "reply", "\"latestVersionUrl\"",
           Says("latestVersionUrl", QStringLiteral("https://x/packages/Other.zip")));
    AddRow("address of another folder", "reply", "\"latestVersionUrl\"",
           Says("latestVersionUrl", QStringLiteral("https://x/Client-2.1.3.zip")));
    AddRow("another version than the list's", "reply", "another release",
           Says("latestVersion", QStringLiteral("2.1.4")));
    AddRow("another package than the list's", "reply", "another release",
           Says("id", QStringLiteral("Client.zip")));
    AddRow("another update than the list's", "reply", "another release",
           Says("update", QStringLiteral("2")));

    AddRow("notes of one language", "notes", "\"&\" 0 times",
           Says("latestVersionInfo", QStringLiteral("new")));
    AddRow("notes of three languages", "notes", "\"&\" 2 times",
           Says("latestVersionInfo", QStringLiteral("新&new&neu")));
    AddRow("no Chinese notes", "notes", "the Chinese notes are empty",
           Says("latestVersionInfo", QStringLiteral(" &new")));
    AddRow("no English notes", "notes", "the English notes are empty",
           Says("latestVersionInfo", QStringLiteral("新& ")));

    AddRow("nothing newer, no JSON", "reply", "is not JSON", [](const Vendor &vendor) {
        WriteFile(vendor.Tree(QStringLiteral("check/none.json")), "nothing");
    });
    AddRow("nothing newer, another code", "reply", "\"code\"",
           SaysOutside("check/none.json", "code", 0));
    AddRow("nothing newer, yet an update", "reply", "\"update\"",
           SaysOutside("check/none.json", "biz",
                       QJsonObject{{QStringLiteral("update"), QStringLiteral("1")}}));
}

void TestVerifyRelease::wrongTrees_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("line");

    AddRow("no tree", "missing", "is not a folder",
           [](const Vendor &vendor) { QDir(vendor.Tree()).removeRecursively(); });
    AddRow("no offer", "missing", "Client-2.1.3.zip.json cannot be read",
           Lacks("check/answers/2.1.3/Client-2.1.3.zip.json"));
    AddRow("no list", "releases", "; restore the tree from a backup",
           Lacks("check/now/releases.json"));
    AddRow("list that is no JSON", "releases", "is not JSON", [](const Vendor &vendor) {
        WriteFile(vendor.Tree(QStringLiteral("check/now/releases.json")), "[");
    });
    AddRow("list of another format", "releases", "\"format\"",
           SaysOutside("check/now/releases.json", "format", 2));
    AddRow("other digests", "decisions", "SHA256SUMS", [](const Vendor &vendor) {
        WriteFile(vendor.Tree(QStringLiteral("check/now/SHA256SUMS")), "");
    });
    AddRow("no other answer", "missing", "none.json cannot be read", Lacks("check/none.json"));
    AddRow("no page", "missing", "index.html cannot be read", Lacks("check/now/index.html"));
    AddRow("no package", "missing", "Client-2.1.3.zip is missing",
           Lacks("packages/Client-2.1.3.zip"));
    AddRow("page of another release", "index", "different SHA-256", [](const Vendor &vendor) {
        const QString path = vendor.Tree(QStringLiteral("check/now/index.html"));
        QByteArray page = ReadFile(path);
        const int digest = page.indexOf("<th>SHA-256</th><td><code>") + 26;
        WriteFile(path, page.replace(digest, 64, QByteArray(64, '0')));
    });
#ifdef Q_OS_UNIX
    AddRow("no link to the list", "releases", "; restore the tree from a backup",
           [](const Vendor &vendor) {
               Request next = vendor.ZipRequest();
               next.version = QStringLiteral("2.2.0");
               QVERIFY(Publish(next).refusals.isEmpty());
               Lacks("check/now")(vendor);
           });
    for (const char *path : {".", "packages", "packages/Client-2.1.3.zip", "check/now/"}) {
        AddRow(qPrintable(QStringLiteral("closed to others: ") + QLatin1String(path)), "mode",
               "run chmod -R o+rX ", [path](const Vendor &vendor) {
                   QVERIFY(QFile::setPermissions(vendor.Tree(QLatin1String(path)),
                                                 QFile::ReadOwner | QFile::WriteOwner |
                                                     QFile::ExeOwner));
               });
    }
    AddRow("a decision is missing", "decisions", "everywhere/other",
           Lacks("check/now/everywhere/other"));
    AddRow("a decision of somebody else", "decisions", "check/now does", [](const Vendor &vendor) {
        QVERIFY(QFile::link(QStringLiteral("../tables/0"),
                            vendor.Tree(QStringLiteral("check/now/everywhere/is-9"))));
    });
    AddRow("another decision", "decisions", "everywhere/other", [](const Vendor &vendor) {
        const QString path = vendor.Tree(QStringLiteral("check/now/everywhere/other"));
        QVERIFY(QFile::remove(path) && QFile::link(QStringLiteral("../tables/9"), path));
    });
#endif
}

void TestVerifyRelease::wrongPackages_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("rule");
    QTest::addColumn<QString>("line");

    AddRow("no archive", "zip-damaged", "is not a zip archive",
           [](const Vendor &vendor) { ReplacePackage(vendor, "no archive"); });
    AddRow("cut directory", "zip-damaged", "list of entries is damaged",
           Holds([](ZipMaker &zip) { zip.SetEnd(ZipMaker::EntriesHere, 3); }));
    AddRow("nothing in it", "empty", "the client's folder is empty",
           HoldsOnly([](ZipMaker &zip) { zip.AddFolder(QStringLiteral("Client-2.1.3")); }));

    AddRow(
        "another top folder", "top-folder", "is not the folder \"Client-2.1.3\"",
        HoldsOnly([](ZipMaker &zip) { zip.AddFile(QStringLiteral("Client-2.1.3/app.txt"), "x"); }));
    AddRow("file beside the top folder", "top-folder", "readme.txt: is outside",
           HoldsFile(QStringLiteral("readme.txt")));
    AddRow("top folder of a similar name", "top-folder", "is outside",
           HoldsFile(QStringLiteral("Client-2.1.30/x")));
    AddRow("file before its folder", "folder-order", "d/x: its folder is not listed before it",
           Holds([](ZipMaker &zip) {
               zip.AddFile(QStringLiteral("Client-2.1.3/d/x"), "x");
               zip.AddFolder(QStringLiteral("Client-2.1.3/d"));
           }));
    AddRow("link", "link", "link: a link", Holds([](ZipMaker &zip) {
               zip.AddLink(QStringLiteral("Client-2.1.3/link"), QStringLiteral("app.txt"));
           }));

    AddRow("name not ASCII", "name-ascii", "is not plain ASCII",
           HoldsFile(QStringLiteral("Client-2.1.3/中文.txt")));
    AddRow("name in another code page", "name-ascii", "is not plain ASCII",
           Holds([](ZipMaker &zip) { zip.AddRawName("Client-2.1.3/\xd6\xd0.txt", "x"); }));
    AddRow("device name", "name-windows", "device", HoldsFile(QStringLiteral("Client-2.1.3/nul")));
    AddRow("trailing dot", "name-windows", "dot", HoldsFile(QStringLiteral("Client-2.1.3/x.")));
    AddRow("back-slash", "name-windows", "\"\\\"",
           Holds([](ZipMaker &zip) { zip.AddRawName("Client-2.1.3/a\\b", "x"); }));
    AddRow("way out", "name-windows", "..: the name",
           Holds([](ZipMaker &zip) { zip.AddRawName("Client-2.1.3/..", "x"); }));
    AddRow("case twins", "case-twin", "APP.txt: Windows cannot distinguish it from \"app.txt\"",
           HoldsFile(QStringLiteral("Client-2.1.3/APP.txt")));
    AddRow("one name twice", "case-twin", "two entries with this name",
           HoldsFile(QStringLiteral("Client-2.1.3/app.txt")));
    AddRow("long path", "name-length", "has 241 characters",
           HoldsFile(QStringLiteral("Client-2.1.3/") + QString(228, QLatin1Char('x'))));

    const auto with = [](ZipField field, quint32 value) {
        return Holds([field, value](ZipMaker &zip) { zip.Set(1, field, value); });
    };
    AddRow("encrypted", "encrypted", "app.txt: is encrypted", with(ZipMaker::Flags, 0x0801));
    AddRow("other method", "method", "method 12", with(ZipMaker::Method, 12));
    AddRow("wrong checksum", "data", "does not match its header", with(ZipMaker::Crc32, 1));
    AddRow("wrong size", "data", "does not match its header", with(ZipMaker::Size, 999));
    AddRow("damaged data", "data", "does not match its header",
           Holds([](ZipMaker &zip) { zip.FlipDataBit(1, 1); }));
    AddRow("wrong offset", "data", "does not match its header",
           Holds([](ZipMaker &zip) { zip.Set(1, ZipMaker::HeaderOffset, 1, ZipMaker::Central); }));
}

void TestVerifyRelease::tooManyEntries()
{
    const Vendor vendor;
    QVERIFY(Publish(vendor.ZipRequest()).refusals.isEmpty());
    Holds([](ZipMaker &zip) {
        for (int number = 2; number < 65535; ++number)
            zip.AddFile(QStringLiteral("Client-2.1.3/") + QString::number(number), QByteArray());
    })(vendor);
    QVERIFY2(Verify(vendor).refusals.isEmpty(), qPrintable(LinesOf(Verify(vendor).refusals)));
    Holds([](ZipMaker &zip) {
        for (int number = 2; number < 65537; ++number)
            zip.AddFile(QStringLiteral("Client-2.1.3/") + QString::number(number), QByteArray());
    })(vendor);
    const Findings refusals = Verify(vendor).refusals;
    QCOMPARE(Rules(refusals), QStringList(QStringLiteral("zip-damaged")));
    QVERIFY(refusals.first().message.contains(QLatin1String("longer than 65535")));
}

void TestVerifyRelease::everythingIsToldAtOnce()
{
    const Vendor vendor;
    QVERIFY(Publish(vendor.ZipRequest()).refusals.isEmpty());
    Holds([](ZipMaker &zip) {
        zip.AddFile(QStringLiteral("Client-2.1.3/nul"), "x");
        zip.AddFile(QStringLiteral("Client-2.1.3/d/x"), "x");
        zip.Set(1, ZipMaker::Crc32, 1);
    })(vendor);
    Says("latestVersionInfo", QStringLiteral("new"))(vendor);
    Lacks("check/none.json")(vendor);
    QCOMPARE(Rules(Verify(vendor).refusals),
             QStringList({QStringLiteral("missing"), QStringLiteral("notes"),
                          QStringLiteral("name-windows"), QStringLiteral("folder-order"),
                          QStringLiteral("data")}));
}

QTEST_GUILESS_MAIN(TestVerifyRelease)
#include "tst_verifyrelease.moc"
