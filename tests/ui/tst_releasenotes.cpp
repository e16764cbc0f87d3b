// SPDX-License-Identifier: MIT
#include "ui/releasenotes.h"

#include "tests/support/filewatch.h"
#include "tests/support/logcapture.h"
#include "tests/support/testhome.h"
#include "tests/ui/notesprompt.h"

#include <QBuffer>
#include <QImageWriter>
#include <QTcpServer>
#include <QTest>
#include <QTextBrowser>
#include <QTextEdit>

#include <algorithm>

namespace
{

const QColor kForeign(255, 0, 255);

/// A part of the names of all files in the notes.
const QString kForeignFiles = QStringLiteral("foreign");

/// A picture that is easy to find in another one.
QImage ForeignImage(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(kForeign);
    return image;
}

/// A data URL with the picture.
QString DataAddress(const QImage &image, const char *format)
{
    QByteArray data;
    QBuffer buffer(&data);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, format))
        qFatal("cannot write %s", format);
    return QStringLiteral("data:image/%1;base64,%2")
        .arg(QLatin1String(format), QString::fromLatin1(data.toBase64()));
}

/// Counts the resources that the notes load.
class CountingDocument : public ReleaseNotesDocument
{
public:
    CountingDocument() : ReleaseNotesDocument(nullptr) {}

    int loads = 0;

protected:
    QVariant loadResource(int type, const QUrl &name) override
    {
        ++loads;
        return ReleaseNotesDocument::loadResource(type, name);
    }
};

void WriteForeignImage(const QString &path)
{
    const QImage image = ForeignImage(60, 40);
    if (!image.save(path, "PNG"))
        qFatal("cannot write %s", qPrintable(path));
}

/// A folder with files that are visible in notes that load them.
class ForeignFiles
{
public:
    ForeignFiles()
    {
        for (const char *image : {"foreign.png", "foreign@2x.png", "foreign @2x.png"})
            WriteForeignImage(home.ProgramFolder() + QLatin1Char('/') + QLatin1String(image));
        const QByteArray sheet = "* { color: #ff00ff; background-color: #ff00ff; font-size: 40px; }"
                                 "body { background-image: url(foreign.png); }";
        WriteFile(Path(QStringLiteral("foreign.css")), sheet);
        WriteFile(Path(QStringLiteral("foreign.html")), "<h1>foreign</h1>");
    }

    /// The full path of a file; the working folder has the same files.
    QString Path(const QString &name) const
    {
        return home.ProgramFolder() + QLatin1Char('/') + name;
    }

    /// The notes with FILE, PATH and PORT replaced.
    QString Fill(QString notes, int port) const
    {
        notes.replace(QLatin1String("FILE"), QUrl::fromLocalFile(home.ProgramFolder()).toString());
        notes.replace(QLatin1String("PATH"), home.ProgramFolder());
        notes.replace(QLatin1String("PORT"), QString::number(port));
        return notes;
    }

    TestHome home;
};

} // namespace

class TestReleaseNotes : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void runsAtTheScaleItIsToldTo();
    void loadNothingFromOutsideTheProgram_data();
    void loadNothingFromOutsideTheProgram();
    void theTestWouldSeeAnImageThatIsLoaded();
    void theTestWouldSeeASheetThatIsLoaded();
    void leaveNoSpaceForAnImageOfAnotherPlace();
    void showTheProgramsOwnImages_data();
    void showTheProgramsOwnImages();
    void showAnOwnImageInTheSizeTheyAskFor();
    void showTheImagesInThem_data();
    void showTheImagesInThem();
    void decodeAnImageOnce();
    void leaveOutWhatIsNoModerateImage_data();
    void leaveOutWhatIsNoModerateImage();
    void skipAResourceThatDoesNotExist();
    void answerEveryLoadOfAnotherPlaceWithNothing_data();
    void answerEveryLoadOfAnotherPlaceWithNothing();
    void handOutTheProgramsOwnResources();
    void keepTheirOwnMarkup();
    void followNoLink();
    void canBeReplaced();
};

void TestReleaseNotes::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void TestReleaseNotes::runsAtTheScaleItIsToldTo()
{
    const int wanted = qEnvironmentVariableIntValue("QT_SCALE_FACTOR");

    QCOMPARE(qApp->devicePixelRatio(), wanted > 0 ? double(wanted) : 1.0);
}

void TestReleaseNotes::loadNothingFromOutsideTheProgram_data()
{
    QTest::addColumn<QString>("notes");

    const auto images = [](const char *name, const QString &address) {
        QTest::addRow("image, %s", name)
            << QStringLiteral("<p>a<img src=\"%1\">b</p>").arg(address);
        QTest::addRow("image with a size, %s", name)
            << QStringLiteral("<img src='%1' width='60' height='40'>").arg(address);
        QTest::addRow("floating image, %s", name)
            << QStringLiteral("<img src=\"%1\" align=\"right\">b").arg(address);
        QTest::addRow("background of the body, %s", name)
            << QStringLiteral("<body background=\"%1\">b</body>").arg(address);
        QTest::addRow("background of a table, %s", name)
            << QStringLiteral("<table background=\"%1\" width=\"100%\"><tr><td>b</td></tr></table>")
                   .arg(address);
        QTest::addRow("background of a cell, %s", name)
            << QStringLiteral("<table width=\"100%\"><tr><td background=\"%1\">b</td></tr></table>")
                   .arg(address);
        for (const char *property : {"background-image", "background", "list-style-image",
                                     "border-image", "image", "content", "cursor"})
            QTest::addRow("%s, %s", property, name)
                << QStringLiteral("<ul style=\"%2: url('%1')\"><li style=\"%2: url('%1')\">b</li>"
                                  "</ul><p style=\"%2: url('%1')\">b</p>")
                       .arg(address, QLatin1String(property));
        QTest::addRow("background in an inner sheet, %s", name)
            << QStringLiteral("<style>p, body, td { background-image: url(%1); }</style><p>b</p>")
                   .arg(address);
        QTest::addRow("other elements, %s", name)
            << QStringLiteral(
                   "<p>a</p><object data=\"%1\">a</object><embed src=\"%1\"><iframe src=\"%1\">"
                   "</iframe><input type=\"image\" src=\"%1\"><video poster=\"%1\" "
                   "src=\"%1\"></video><svg><image href=\"%1\"/></svg><p>b</p>")
                   .arg(address);
    };
    images("file address", QStringLiteral("FILE/foreign.png"));
    images("absolute path", QStringLiteral("PATH/foreign.png"));
    images("relative path", QStringLiteral("foreign.png"));
    images("path with dots", QStringLiteral("./../AutoUpdate/foreign.png"));
    images("path with a blank", QStringLiteral("foreign .png"));
    images("share", QStringLiteral("\\\\foreign.invalid\\share\\foreign.png"));
    images("share with slashes", QStringLiteral("//foreign.invalid/share/foreign.png"));
    images("share as file address", QStringLiteral("file://foreign.invalid/share/foreign.png"));
    images("http", QStringLiteral("http://127.0.0.1:PORT/foreign.png"));
    images("image provider", QStringLiteral("image://foreign/foreign.png"));
    images("resource-like", QStringLiteral("qrc:PATH/foreign.png"));
    images("resource-like with dots", QStringLiteral(":/../../foreign.png"));
    images("other letter case", QStringLiteral("QRC:/../foreign.png"));

    const auto sheets = [](const char *name, const QString &address) {
        QTest::addRow("linked sheet, %s", name)
            << QStringLiteral("<html><head><link rel=\"stylesheet\" type=\"text/css\" href=\"%1\">"
                              "</head><body><p>b</p></body></html>")
                   .arg(address);
        QTest::addRow("imported sheet, %s", name)
            << QStringLiteral("<style>@import url(%1);</style><style>@import \"%1\";</style>"
                              "<p>b</p>")
                   .arg(address);
    };
    sheets("file address", QStringLiteral("FILE/foreign.css"));
    sheets("absolute path", QStringLiteral("PATH/foreign.css"));
    sheets("relative path", QStringLiteral("foreign.css"));
    sheets("share", QStringLiteral("\\\\foreign.invalid\\share\\foreign.css"));
    sheets("share with slashes", QStringLiteral("//foreign.invalid/share/foreign.css"));
    sheets("http", QStringLiteral("http://127.0.0.1:PORT/foreign.css"));
    sheets("data", QStringLiteral("data:text/css,*{color:%23ff00ff}"));

    QTest::newRow("base address") << QStringLiteral(
        "<base href=\"FILE/\"><p><img src=\"foreign.png\">b</p>");
    QTest::newRow("other document") << QStringLiteral(
        "<meta http-equiv=\"refresh\" content=\"0; url=FILE/foreign.html\"><p>b</p>");
}

void TestReleaseNotes::loadNothingFromOutsideTheProgram()
{
    QFETCH(QString, notes);
    const ForeignFiles files;
    QTcpServer server;
    QVERIFY(server.listen(QHostAddress::LocalHost));
    const QString filled = files.Fill(notes, server.serverPort());
    const LogCapture log;
    const FileWatch watch(kForeignFiles);

    Prompt prompt(filled);
    const QImage seen = Picture(prompt);

    QVERIFY2(!Shows(seen, kForeign, 60), "a foreign colour in the picture");
    QCOMPARE(watch.Names(), QStringList());
    QVERIFY(!server.hasPendingConnections());
    QVERIFY2(prompt.Notes().document()->size().height() <= 120, "a foreign size");
    QVERIFY(log.Messages().filter(QStringLiteral("foreign")).isEmpty());
}

void TestReleaseNotes::theTestWouldSeeAnImageThatIsLoaded()
{
    const ForeignFiles files;
    const QString notes = files.Fill(QStringLiteral("<p>a<img src=\"FILE/foreign.png\">b</p>"), 0);
    const FileWatch watch(kForeignFiles);
    QTextEdit ordinary;
    ordinary.setText(notes);
    ordinary.show();

    QVERIFY(Shows(Picture(ordinary), kForeign, 60));
    QVERIFY(!watch.Names().isEmpty());
}

void TestReleaseNotes::theTestWouldSeeASheetThatIsLoaded()
{
    const ForeignFiles files;
    const QString notes =
        files.Fill(QStringLiteral("<style>@import url(FILE/foreign.css);</style><p>b</p>"), 0);
    const FileWatch watch(kForeignFiles);
    QTextBrowser ordinary;
    ordinary.setText(notes);
    ordinary.show();

    QVERIFY(Shows(Picture(ordinary), kForeign, 60));
    QVERIFY(!watch.Names().isEmpty());
}

void TestReleaseNotes::leaveNoSpaceForAnImageOfAnotherPlace()
{
    const ForeignFiles files;
    const Prompt without(QStringLiteral("<p>ab</p>"));
    const QSizeF wanted = without.Notes().document()->size();
    const double wantedWidth = without.Notes().document()->idealWidth();

    const Prompt with(files.Fill(
        QStringLiteral("<p>a<img src=\"FILE/foreign.png\" width=\"90\" height=\"90\">b</p>"), 0));

    QCOMPARE(with.Notes().document()->size(), wanted);
    QCOMPARE(with.Notes().document()->idealWidth(), wantedWidth);
}

void TestReleaseNotes::showTheProgramsOwnImages_data()
{
    QTest::addColumn<QString>("address");

    QTest::newRow("path") << QStringLiteral(":/image/resourceimg/cancle.png");
    QTest::newRow("address") << QStringLiteral("qrc:/image/resourceimg/cancle.png");
}

void TestReleaseNotes::showTheProgramsOwnImages()
{
    QFETCH(QString, address);
    const TestHome home;
    Prompt prompt(
        QStringLiteral("<p style=\"background-color:#00c800\"><img src=\"%1\"></p>").arg(address));

    const QSizeF size = prompt.Notes().document()->size();
    QVERIFY2(size.height() >= 114, qPrintable(QString::number(size.height())));
    QVERIFY(prompt.Notes().document()->idealWidth() >= 199);
    // The white of the panel covers the green of the line.
    const double scale = prompt.devicePixelRatioF();
    const QImage seen = Picture(*prompt.Notes().viewport());
    VERIFY_COLOUR(seen.pixelColor(int(100 * scale), int(60 * scale)), QColor(255, 255, 255));
    VERIFY_COLOUR(seen.pixelColor(int(300 * scale), int(60 * scale)), QColor(0, 200, 0));
}

void TestReleaseNotes::showAnOwnImageInTheSizeTheyAskFor()
{
    const TestHome home;
    const Prompt prompt(QStringLiteral(
        "<p><img src=\":/image/resourceimg/logo.png\" width=\"300\" height=\"70\"></p>"));

    QVERIFY(prompt.Notes().document()->idealWidth() >= 300);
    QVERIFY(prompt.Notes().document()->idealWidth() < 330);
    QVERIFY(prompt.Notes().document()->size().height() >= 70);
    QVERIFY(prompt.Notes().document()->size().height() < 110);
}

void TestReleaseNotes::showTheImagesInThem_data()
{
    QTest::addColumn<QByteArray>("format");
    QTest::addColumn<QString>("notes");
    QTest::addColumn<QSizeF>("size");

    const QString image = QStringLiteral("<p><img src=\"%1\"></p>");
    const QList<QByteArray> written = QImageWriter::supportedImageFormats();
    for (const char *format : {"png", "bmp", "jpeg", "ico"})
        if (written.contains(format))
            QTest::newRow(format) << QByteArray(format) << image << QSizeF(60, 40);
    QTest::newRow("twice") << QByteArray("png") << image.repeated(2) << QSizeF(60, 40);
    QTest::newRow("of a width") << QByteArray("png") << QStringLiteral("<img src='%1' width=30>")
                                << QSizeF(30, 20);
    QTest::newRow("of a height") << QByteArray("png") << QStringLiteral("<img src='%1' height=80>")
                                 << QSizeF(120, 80);
    QTest::newRow("of another size")
        << QByteArray("png") << QStringLiteral("<img src=%1 width=50 height=50>") << QSizeF(50, 50);
    QTest::newRow("floating") << QByteArray("png") << QStringLiteral("<img align=right src=%1>b")
                              << QSizeF(60, 40);
}

void TestReleaseNotes::showTheImagesInThem()
{
    QFETCH(QByteArray, format);
    QFETCH(QString, notes);
    const TestHome home;
    Prompt prompt(notes.arg(DataAddress(ForeignImage(60, 40), format)));

    const QImage seen = Picture(*prompt.Notes().viewport());
    QVERIFY(Shows(seen, kForeign, 8));
    const QVector<QTextFormat> formats = prompt.Notes().document()->allFormats();
    const auto image = std::find_if(formats.begin(), formats.end(), [](const QTextFormat &each) {
        return each.isImageFormat() && each.toImageFormat().width() > 0 &&
               each.toImageFormat().height() > 0;
    });
    QVERIFY(image != formats.end());
    QFETCH(QSizeF, size);
    QVERIFY(std::any_of(formats.begin(), formats.end(), [&size](const QTextFormat &each) {
        return each.isImageFormat() &&
               QSizeF(each.toImageFormat().width(), each.toImageFormat().height()) == size;
    }));
}

void TestReleaseNotes::decodeAnImageOnce()
{
    const TestHome home;
    const QString image =
        QStringLiteral("<p>a<img src=\"%1\"></p>").arg(DataAddress(ForeignImage(60, 40), "png"));
    auto *const document = new CountingDocument;
    document->SetNotes(image.repeated(20) + QStringLiteral("<table><tr><td>") + image);
    QTextEdit edit;
    edit.setDocument(document);
    document->setParent(&edit);
    edit.show();
    QVERIFY(Shows(Picture(edit), kForeign));
    edit.resize(200, 100);
    QVERIFY(Shows(Picture(edit), kForeign));

    QCOMPARE(document->loads, 1);
}

void TestReleaseNotes::leaveOutWhatIsNoModerateImage_data()
{
    QTest::addColumn<QString>("address");

    QByteArray drawing = R"(<svg xmlns="http://www.w3.org/2000/svg" width="60" height="40">)"
                         R"(<rect width="60" height="40" fill="#ff00ff"/></svg>)";
    QTest::newRow("a drawing") << QStringLiteral("data:image/svg+xml;base64,") +
                                      QString::fromLatin1(drawing.toBase64());
    QTest::newRow("nothing") << QStringLiteral("data:");
    QTest::newRow("no image") << QStringLiteral("data:image/png;base64,AAAA");
    QTest::newRow("more pixels than two screens") << DataAddress(ForeignImage(2049, 2049), "png");
}

void TestReleaseNotes::leaveOutWhatIsNoModerateImage()
{
    QFETCH(QString, address);
    const TestHome home;
    const LogCapture log;
    Prompt prompt(QStringLiteral("<p>a<img src=\"%1\">b</p>").arg(address));

    QVERIFY(!Shows(Picture(prompt), kForeign));
    QVERIFY(prompt.Notes().document()->size().height() < 60);
    QCOMPARE(log.Messages(), QStringList());
}

void TestReleaseNotes::skipAResourceThatDoesNotExist()
{
    const TestHome home;
    const LogCapture log;
    Prompt prompt(QStringLiteral("<p>a<img src=\":/image/no.png\"><img src=\"qrc:/no.png\">b</p>"
                                 "<link rel=\"stylesheet\" href=\"qrc:/no.css\">"));

    QVERIFY(!Picture(prompt).isNull());
    QVERIFY(prompt.Notes().document()->size().height() < 60);
    QCOMPARE(log.Messages(), QStringList());
}

void TestReleaseNotes::answerEveryLoadOfAnotherPlaceWithNothing_data()
{
    QTest::addColumn<QString>("address");

    for (const char *address :
         {"FILE/foreign.png", "FILE/foreign.css", "PATH/foreign.css", "foreign.css",
          "//foreign.invalid/share/foreign.css", "file://foreign.invalid/share/foreign.css",
          "http://127.0.0.1:1/foreign.css", "data:text/css,p{}", "qrc:PATH/foreign.css",
          "QRC:/image/foreign.png", ":foreign.css", ""})
        QTest::addRow("'%s'", address) << QString::fromLatin1(address);
}

void TestReleaseNotes::answerEveryLoadOfAnotherPlaceWithNothing()
{
    QFETCH(QString, address);
    const ForeignFiles files;
    const QUrl url(files.Fill(address, 0));
    const FileWatch watch(kForeignFiles);
    const ReleaseNotesDocument document(nullptr);

    for (const int type : {QTextDocument::HtmlResource, QTextDocument::ImageResource,
                           QTextDocument::StyleSheetResource, QTextDocument::UserResource}) {
        const QVariant answer = document.resource(type, url);
        QVERIFY(answer.toByteArray().isEmpty());
    }
    QCOMPARE(watch.Names(), QStringList());
}

void TestReleaseNotes::handOutTheProgramsOwnResources()
{
    const ReleaseNotesDocument document(nullptr);

    const QUrl address(QStringLiteral("qrc:/image/resourceimg/check.png"));
    QCOMPARE(document.resource(QTextDocument::ImageResource, address).value<QImage>(),
             QImage(QStringLiteral(":/image/resourceimg/check.png")));
}

void TestReleaseNotes::keepTheirOwnMarkup()
{
    const TestHome home;
    Prompt prompt(QStringLiteral("<style>p { color: #00aa00; }</style><p style=\"font-size:20px\">"
                                 "\u2588\u2588</p><font color=\"#aa0000\">\u2588\u2588</font>"));

    const QImage seen = Picture(*prompt.Notes().viewport());
    QVERIFY(Shows(seen, QColor(0, 0xaa, 0)));
    QVERIFY(Shows(seen, QColor(0xaa, 0, 0)));
}

void TestReleaseNotes::followNoLink()
{
    const ForeignFiles files;
    Prompt prompt(files.Fill(
        QStringLiteral("<a href=\"FILE/foreign.html\">%1</a>").arg(QString(40, QChar(0x2588))), 0));
    const FileWatch watch(kForeignFiles);

    QTest::mouseClick(prompt.Notes().viewport(), Qt::LeftButton, Qt::NoModifier, QPoint(30, 12));
    QTest::keyClick(&prompt.Notes(), Qt::Key_Tab);

    QCOMPARE(watch.Names(), QStringList());
    QCOMPARE(prompt.Notes().toPlainText().size(), 40);
    QVERIFY(prompt.Notes().viewport()->cursor().shape() != Qt::PointingHandCursor);
}

void TestReleaseNotes::canBeReplaced()
{
    const ForeignFiles files;
    const QString first = files.Fill(QStringLiteral("<img src=\"FILE/foreign.png\">"), 0);
    const QString second =
        files.Fill(QStringLiteral("<b>again</b><img src=\"PATH/foreign.png\">"), 0);
    const FileWatch watch(kForeignFiles);
    Prompt prompt(first);
    Global::instance.latestVersionInfo = second;

    prompt.updateMode(QStringLiteral("1"));

    QVERIFY(prompt.Notes().toPlainText().startsWith(QStringLiteral("again")));
    QVERIFY(!Shows(Picture(prompt), kForeign, 60));
    QCOMPARE(watch.Names(), QStringList());
}

int main(int argc, char *argv[])
{
    // As the program sets them.
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    TestReleaseNotes test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_releasenotes.moc"
