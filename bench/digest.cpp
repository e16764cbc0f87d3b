// SPDX-License-Identifier: MIT
// The digest of packages in the file cache, compared with md5sum.

#include "bench/figure.h"
#include "config/global.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>

namespace
{

constexpr int kRuns = 7;
constexpr qint64 kMebibyte = 1024LL * 1024;

QString Md5sum(const QString &path)
{
    QProcess md5sum;
    md5sum.start(QStringLiteral("md5sum"), {path});
    md5sum.waitForFinished(-1);
    return QString::fromLatin1(md5sum.readAll()).section(QLatin1Char(' '), 0, 0);
}

void Measure(const QString &path)
{
    // This also fills the file cache for both.
    if (Md5sum(path).isEmpty() || Global::instance.FileMd5(path) != Md5sum(path))
        qFatal("the digests of %s differ", qPrintable(path));
    Figure figure;
    for (int run = 0; run < kRuns; ++run) {
        figure.ours.append(Milliseconds([&path] { (void)Global::instance.FileMd5(path); }));
        figure.theirs.append(Milliseconds([&path] { (void)Md5sum(path); }));
    }
    figure.name =
        QStringLiteral("MD5 of %1 MiB in the cache").arg(QFileInfo(path).size() / kMebibyte);
    figure.unit = QStringLiteral("ms");
    figure.comparedWith = QStringLiteral("md5sum");
    figure.judged = Figure::Ratio;
    figure.bound = 1.1;
    Print(figure);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList paths = QCoreApplication::arguments().mid(1);
    if (paths.isEmpty())
        qFatal("usage: digest FILE...");
    KeepQuiet();
    for (const QString &path : paths)
        Measure(path);
    return 0;
}
