// SPDX-License-Identifier: MIT
// Writing a line of the log, compared with appending the same number of bytes to a file that is
// opened and closed for each line, as the log must be.

#include "app/logmessagehandler.h"
#include "bench/figure.h"
#include "tests/support/testhome.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QTextStream>

#include <fcntl.h>
#include <unistd.h>

namespace
{

constexpr int kRuns = 15;
constexpr int kLines = 2000;
constexpr double kMicrosecondsInMs = 1000;

void LogOne()
{
    qInfo() << "update fileName: " << QStringLiteral("C:/Users/user/AppData/Local/Client/x.zip");
}

/// One line, formatted as in the log.
QByteArray LoggedLine(const TestHome &home)
{
    LogOne();
    return home.LogLines().last().toUtf8() + "\r\n";
}

void AppendWithSystemCalls(const QByteArray &path, const QByteArray &line)
{
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0 || ::write(file, line.constData(), size_t(line.size())) != line.size())
        qFatal("cannot write %s", path.constData());
    ::close(file);
}

void AppendWithFramework(const QString &path, const QString &line)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append))
        qFatal("cannot write %s", qPrintable(path));
    QTextStream stream(&file);
    stream << line;
}

double MicrosecondsALine(const std::function<void()> &append)
{
    const double elapsed = Milliseconds([&append] {
        for (int line = 0; line < kLines; ++line)
            append();
    });
    return elapsed * kMicrosecondsInMs / kLines;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const TestHome home;
    qInstallMessageHandler(LogMessageHandler);
    const QByteArray line = LoggedLine(home);
    const QString text = QString::fromUtf8(line);
    const QString barePath = home.Scratch() + QStringLiteral("/bare.log");
    const QByteArray barePathBytes = QFile::encodeName(barePath);

    Figure figure;
    QVector<double> framework;
    for (int run = 0; run < kRuns; ++run) {
        figure.ours.append(MicrosecondsALine(LogOne));
        figure.theirs.append(
            MicrosecondsALine([&] { AppendWithSystemCalls(barePathBytes, line); }));
        framework.append(MicrosecondsALine([&] { AppendWithFramework(barePath, text); }));
    }
    figure.name = QStringLiteral("a line of the log (%1 bytes)").arg(line.size());
    figure.unit = QStringLiteral("µs");
    figure.comparedWith = QStringLiteral("bare open, write, close");
    figure.judged = Figure::Ratio;
    figure.bound = 2;
    Print(figure);

    figure.theirs = framework;
    figure.comparedWith = QStringLiteral("bare QFile and QTextStream");
    Print(figure);
    return 0;
}
