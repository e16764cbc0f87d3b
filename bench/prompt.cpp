// SPDX-License-Identifier: MIT
// How soon the prompt is drawn, from the moment that the service sends its answer.

#include "bench/figure.h"
#include "config/global.h"
#include "net/httpdownloadfile.h"
#include "tests/support/updaterrun.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTest>
#include <QThread>

namespace
{

constexpr int kRuns = 10;

QString CheckPath()
{
    return QStringLiteral("/check");
}

/// Notes when the prompt is drawn for the first time.
class PaintWatch : public QObject
{
public:
    PaintWatch() { qApp->installEventFilter(this); }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        const bool isPrompt = watched->objectName() == QLatin1String("UpdateDialog");
        isPainted = isPainted || (isPrompt && event->type() == QEvent::Paint);
        return false;
    }

    bool isPainted = false;
};

double PromptMs()
{
    UpdaterRun run;
    run.Configure();
    const QString answer =
        QStringLiteral(R"({"code": "000000", "biz": {"latestVersion": "2.0.0",)"
                       R"( "update": "1", "latestVersionInfo": "<b>notes</b>"}})");
    run.server.Script(CheckPath(), QJsonObject{{QStringLiteral("body"), answer},
                                               {QStringLiteral("hold"), QStringLiteral("before")}});
    if (Global::instance.ReadConfig() != Global::Success)
        qFatal("the configuration cannot be read");

    PaintWatch watch;
    QThread thread;
    HttpDownLoadFile worker;
    worker.moveToThread(&thread);
    QObject::connect(&thread, &QThread::finished, &worker, &HttpDownLoadFile::DeleteResource,
                     Qt::DirectConnection);
    thread.start();
    if (!run.server.WaitForRequests(1))
        qFatal("no check request came");
    const double elapsed = Milliseconds([&] {
        run.server.Release(CheckPath());
        if (!QTest::qWaitFor([&] { return watch.isPainted; }, 10000))
            qFatal("the prompt was never drawn");
    });
    thread.exit(0);
    thread.wait();
    return elapsed;
}

} // namespace

int main(int argc, char *argv[])
{
    Q_INIT_RESOURCE(resources);
    const QApplication application(argc, argv);
    KeepQuiet();

    Figure figure;
    for (int run = 0; run < kRuns; ++run)
        figure.ours.append(PromptMs());
    figure.name = QStringLiteral("the service's answer to the prompt being drawn");
    figure.unit = QStringLiteral("ms");
    Print(figure);
    return 0;
}
