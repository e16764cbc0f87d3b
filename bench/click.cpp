// SPDX-License-Identifier: MIT
// How soon the window answers while it downloads 1 GiB: repeated real presses of "Cancel", each
// measured until the question whether to cancel is on the screen.

#include "bench/figure.h"
#include "bench/packageserver.h"
#include "bench/updaterwindow.h"
#include "tests/support/dialogplaces.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QImage>
#include <QPixmap>
#include <QScreen>
#include <QTest>

namespace
{

constexpr int kDownloads = 4;
constexpr int kMebibytes = 1024;
constexpr qint64 kPackageBytes = kMebibytes * 1024LL * 1024;
constexpr int kBetweenPressesMs = 50;
constexpr int kTryMs = 10000;

/// A user with a mouse: one long-lived xdotool that reads its commands line by line.
class Mouse
{
public:
    Mouse() { m_xdotool.start(QStringLiteral("xdotool"), {QStringLiteral("-")}); }
    ~Mouse()
    {
        m_xdotool.closeWriteChannel();
        m_xdotool.waitForFinished();
    }

    void MoveTo(const QString &window, const QPoint &place)
    {
        Tell(QStringLiteral("mousemove --sync --window %1 %2 %3\n")
                 .arg(window, QString::number(place.x()), QString::number(place.y())));
    }

    void Press() { Tell(QStringLiteral("mousedown 1\nmouseup 1\n")); }

private:
    Q_DISABLE_COPY(Mouse)

    void Tell(const QString &order)
    {
        m_xdotool.write(order.toLatin1());
        if (!m_xdotool.waitForBytesWritten())
            qFatal("xdotool: %s", qPrintable(m_xdotool.errorString()));
    }

    QProcess m_xdotool;
};

/// The part of the window that shows the question, or nothing without it.
class QuestionArea
{
public:
    QuestionArea(const QString &window, const QRect &area)
        : m_window(window.toULongLong()), m_area(area)
    {
    }

    QImage Picture() const
    {
        return QGuiApplication::primaryScreen()
            ->grabWindow(m_window, m_area.x(), m_area.y(), m_area.width(), m_area.height())
            .toImage();
    }

    /// Returns once it no longer shows @p former.
    void WaitForChange(const QImage &former) const
    {
        QElapsedTimer timer;
        timer.start();
        while (Picture() == former) {
            if (timer.elapsed() > kTryMs)
                qFatal("the window does not answer");
        }
    }

private:
    WId m_window;
    QRect m_area;
};

void Measure(const PackageServer &server, const DialogPlaces &places, QVector<double> &answers)
{
    const QPoint cancel = places.buttons.value(QStringLiteral("cancleBtn"));
    const QPoint keepGoing = places.buttons.value(QStringLiteral("cbtn"));
    UpdaterRun run;
    const QString path = PackageServer::Target(run, kMebibytes);
    server.StartDownload(run, kMebibytes);
    if (!QTest::qWaitFor([&] { return QFileInfo(path).size() > 0; }, kTryMs))
        qFatal("the download does not begin");
    const QString window = UpdaterWindow();
    const QuestionArea area(window, places.question);
    const QImage blank = area.Picture();

    Mouse mouse;
    while (QFileInfo(path).size() < kPackageBytes) {
        mouse.MoveTo(window, cancel);
        QTest::qWait(kBetweenPressesMs);
        const double answer = Milliseconds([&] {
            mouse.Press();
            area.WaitForChange(blank);
        });
        const bool stillComing = QFileInfo(path).size() < kPackageBytes;
        if (stillComing)
            answers.append(answer);
        const QImage question = area.Picture();
        mouse.MoveTo(window, keepGoing);
        mouse.Press();
        area.WaitForChange(question);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    KeepQuiet();
    const PackageServer server(argc, argv);
    const DialogPlaces places = PlacesInDialogs();
    Figure figure;
    for (int download = 0; download < kDownloads; ++download)
        Measure(server, places, figure.ours);
    figure.name =
        QStringLiteral("a press of \"Cancel\" to the question drawn, while 1 GiB comes in");
    figure.unit = QStringLiteral("ms");
    figure.judged = Figure::Worst;
    figure.bound = 50;
    Print(figure);
    return 0;
}
