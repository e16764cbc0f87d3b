// How soon the window answers while 1 GiB comes in: real presses of "Cancel", again and again, each
// until the question whether to cancel stands on the screen.

#include "bench/figure.h"
#include "bench/packageserver.h"
#include "bench/updaterwindow.h"

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

// Middles of the buttons in the window, and a part of the question that is blank without it.
const QPoint kCancel(406, 254);
const QPoint kKeepGoing(262, 255);
const QRect kQuestion(200, 205, 100, 30);

/// A user with a mouse: one long-lived xdotool that takes its orders line by line.
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

QImage WhatIsThere(const QString &window)
{
    return QGuiApplication::primaryScreen()
        ->grabWindow(window.toULongLong(), kQuestion.x(), kQuestion.y(), kQuestion.width(),
                     kQuestion.height())
        .toImage();
}

/// Returns once the question, or its absence, is no longer @p former.
void WaitForChange(const QString &window, const QImage &former)
{
    QElapsedTimer timer;
    timer.start();
    while (WhatIsThere(window) == former) {
        if (timer.elapsed() > kTryMs)
            qFatal("the window does not answer");
    }
}

void Measure(const PackageServer &server, QVector<double> &answers)
{
    UpdaterRun run;
    const QString path = PackageServer::Target(run, kMebibytes);
    server.StartDownload(run, kMebibytes);
    if (!QTest::qWaitFor([&] { return QFileInfo(path).size() > 0; }, kTryMs))
        qFatal("the download does not begin");
    const QString window = UpdaterWindow();
    const QImage blank = WhatIsThere(window);

    Mouse mouse;
    while (QFileInfo(path).size() < kPackageBytes) {
        mouse.MoveTo(window, kCancel);
        QTest::qWait(kBetweenPressesMs);
        const double answer = Milliseconds([&] {
            mouse.Press();
            WaitForChange(window, blank);
        });
        const bool stillComing = QFileInfo(path).size() < kPackageBytes;
        if (stillComing)
            answers.append(answer);
        const QImage question = WhatIsThere(window);
        mouse.MoveTo(window, kKeepGoing);
        mouse.Press();
        WaitForChange(window, question);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const QApplication application(argc, argv);
    KeepQuiet();
    const PackageServer server(argc, argv);
    Figure figure;
    for (int download = 0; download < kDownloads; ++download)
        Measure(server, figure.ours);
    figure.name =
        QStringLiteral("a press of \"Cancel\" to the question drawn, while 1 GiB comes in");
    figure.unit = QStringLiteral("ms");
    figure.judged = Figure::Worst;
    figure.bound = 50;
    Print(figure);
    return 0;
}
