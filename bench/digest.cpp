// The digest of a package that lies in the cache, against md5sum.

#include "bench/figure.h"
#include "config/global.h"

#include <QCoreApplication>
#include <QProcess>

namespace
{

constexpr int kRuns = 7;

QString Md5sum(const QString &path)
{
    QProcess md5sum;
    md5sum.start(QStringLiteral("md5sum"), {path});
    md5sum.waitForFinished(-1);
    return QString::fromLatin1(md5sum.readAll()).section(QLatin1Char(' '), 0, 0);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc != 2)
        qFatal("usage: digest FILE");
    KeepQuiet();
    const QString path = QString::fromLocal8Bit(argv[1]);

    // What both read comes from the cache from here on.
    if (Md5sum(path).isEmpty() || Global::instance.FileMd5(path) != Md5sum(path))
        qFatal("the digests of %s differ", argv[1]);
    Figure figure;
    for (int run = 0; run < kRuns; ++run) {
        figure.ours.append(Milliseconds([&path] { (void)Global::instance.FileMd5(path); }));
        figure.theirs.append(Milliseconds([&path] { (void)Md5sum(path); }));
    }
    figure.name = QStringLiteral("MD5 of 256 MiB in the cache");
    figure.unit = QStringLiteral("ms");
    figure.comparedWith = QStringLiteral("md5sum");
    figure.judged = Figure::Ratio;
    figure.bound = 1.2;
    Print(figure);
    return 0;
}
