// SPDX-License-Identifier: MIT
#include "config/global.h"
#include "tests/support/testhome.h"
#include "tests/ui/dialogs.h"
#include "ui/netdialog.h"
#include "ui/updatedialog.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QImageReader>
#include <QLabel>
#include <QPainter>

namespace
{

const QString kFolder = QStringLiteral(":/image/resourceimg/");

/// The image of the icon with this side in pixels; null when there is none.
QImage InIcon(int side)
{
    QImageReader reader(kFolder + QStringLiteral("logo.ico"));
    for (int i = 0; i < reader.imageCount(); ++i) {
        reader.jumpToImage(i);
        const QImage image = reader.read();
        if (image.width() == side)
            return image;
    }
    return QImage();
}

/// The image drawn on white without scaling.
QImage OnWhite(QImage image)
{
    image.setDevicePixelRatio(1); // 2 in a copy of double size
    QImage seen(image.size(), QImage::Format_RGB32);
    seen.fill(Qt::white);
    QPainter(&seen).drawImage(0, 0, image);
    return seen;
}

/// Describes the first difference; empty when there is none.
QString Difference(const QImage &seen, const QImage &wanted)
{
    if (seen.size() != wanted.size())
        return QStringLiteral("%1 pixels wide, wanted %2").arg(seen.width()).arg(wanted.width());
    for (int y = 0; y < wanted.height(); ++y)
        for (int x = 0; x < wanted.width(); ++x)
            if (!IsNear(seen.pixelColor(x, y), wanted.pixelColor(x, y)))
                return QStringLiteral("(%1, %2) is %3, wanted %4")
                    .arg(x)
                    .arg(y)
                    .arg(seen.pixelColor(x, y).name(), wanted.pixelColor(x, y).name());
    return QString();
}

} // namespace

/// Runs once for each scale of the screen.
class TestImages : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void haveACopyOfDoubleSize_data();
    void haveACopyOfDoubleSize();
    void theLogoIsDrawnFromAnImageOfItsSize();
    void theTickIsDrawnPixelByPixel();
    void thePanelIsDrawnPixelByPixel();

private:
    /// Whether the pictures need no scaling; their copies have double size.
    static bool ScaleIsWhole() { return qApp->devicePixelRatio() == int(qApp->devicePixelRatio()); }

    /// The picture of that name for this scale, which must be a whole number.
    static QImage Wanted(const QString &name)
    {
        const char *copy = qApp->devicePixelRatio() > 1 ? "@2x" : "";
        return QImage(kFolder + name + QLatin1String(copy) + QStringLiteral(".png"));
    }
};

void TestImages::initTestCase()
{
    Q_INIT_RESOURCE(resources);
}

void TestImages::haveACopyOfDoubleSize_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"cancle", "check", "logo"})
        QTest::newRow(name) << QString::fromLatin1(name);
}

void TestImages::haveACopyOfDoubleSize()
{
    QFETCH(QString, name);
    const QImage picture(kFolder + name + QStringLiteral(".png"));
    QVERIFY(!picture.isNull());
    QCOMPARE(QImage(kFolder + name + QStringLiteral("@2x.png")).size(), 2 * picture.size());
    const QStringList pictures = QDir(kFolder).entryList({QStringLiteral("*.png")});
    QCOMPARE(pictures.size(), 6);
}

void TestImages::theLogoIsDrawnFromAnImageOfItsSize()
{
    UpdateDialog prompt;
    const QImage wanted = InIcon(qRound(48 * qApp->devicePixelRatio()));
    QVERIFY(!wanted.isNull());

    const QString difference =
        Difference(Picture(*Child<QLabel>(prompt, "labIco")), OnWhite(wanted));
    QVERIFY2(difference.isEmpty(), qPrintable(difference));
}

void TestImages::theTickIsDrawnPixelByPixel()
{
    if (!ScaleIsWhole())
        QSKIP("drawn from the larger picture");
    UpdateDialog prompt;
    auto *box = Child<QCheckBox>(prompt, "checkRemid");
    box->setChecked(true);
    const QImage wanted = Wanted(QStringLiteral("check"));

    const QImage seen = Picture(*box).copy(QRect(QPoint(), wanted.size()));
    const QString difference = Difference(seen, OnWhite(wanted));
    QVERIFY2(difference.isEmpty(), qPrintable(difference));
}

void TestImages::thePanelIsDrawnPixelByPixel()
{
    if (!ScaleIsWhole())
        QSKIP("drawn from the larger picture");
    QWidget backdrop;
    NetDialog panel;
    ShowOnBackdrop(panel, QRect(0, 0, 199, 114), backdrop, QStringLiteral("white"));
    const QImage wanted = Wanted(QStringLiteral("cancle"));

    const QImage seen = Picture(backdrop).copy(QRect(QPoint(), wanted.size()));
    const QString difference = Difference(seen, OnWhite(wanted));
    QVERIFY2(difference.isEmpty(), qPrintable(difference));
}

int main(int argc, char *argv[])
{
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    QApplication application(argc, argv);
    TestImages test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_images.moc"
