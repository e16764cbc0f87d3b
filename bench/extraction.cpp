// SPDX-License-Identifier: MIT
// The unpacking of a package, compared with unzip: large files, and many small ones.

#include "bench/figure.h"
#include "config/global.h"
#include "release/publish/packing/packagewriter.h"
#include "tests/support/testhome.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>

namespace
{

using ReleaseRules::Entry;

constexpr int kRuns = 5;
constexpr int kLargeFiles = 10;
constexpr int kLargeSize = 50 * 1024 * 1024;
constexpr int kSmallSize = 2048;
constexpr int kFilesAFolder = 100;

using Content = QByteArray (*)(int size, quint32 seed);

/// Cannot be compressed, so the package stores it.
QByteArray Noise(int size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator random(seed);
    random.fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / int(sizeof(quint32)));
    return bytes;
}

/// Lines of a table, which compress to about a third.
QByteArray Text(int size, quint32 seed)
{
    QByteArray bytes;
    bytes.reserve(size + 100);
    QRandomGenerator random(seed);
    for (int row = 0; bytes.size() < size; ++row) {
        bytes += "row " + QByteArray::number(row) + " of the table holds ";
        bytes += QByteArray::number(random.generate(), 16) + " and the flag ";
        bytes += (random.generate() & 1U) != 0 ? "true\n" : "false\n";
    }
    bytes.truncate(size);
    return bytes;
}

/// A machine with a package to unpack: @p count files of @p size bytes each.
class Machine : public TestHome
{
public:
    Machine(int count, int size, Content content)
    {
        const QString client = Scratch() + QStringLiteral("/client");
        QVector<Entry> entries;
        for (int index = 0; index < count; ++index) {
            const QString folder = QStringLiteral("folder-%1").arg(index / kFilesAFolder);
            if (index % kFilesAFolder == 0)
                entries.append({folder, true, 0});
            const QString path = folder + QStringLiteral("/file-%1.bin").arg(index);
            WriteFile(client + QLatin1Char('/') + path, content(size, quint32(index)));
            entries.append({path, false, size});
        }
        QDir().mkpath(QFileInfo(Package()).absolutePath());
        Progress silent(Progress::Silent);
        if (WritePackage(client, QStringLiteral("package"), entries, Package(), silent))
            qFatal("the package cannot be made");
        QDir(client).removeRecursively();
    }

    QString Package() const { return Home() + QStringLiteral("/AppData/Local/Client/package.zip"); }

    /// Without the folder for the client's notes, the installation ends after unpacking.
    double UpdaterMs() const
    {
        const double elapsed =
            Milliseconds([this] { (void)Global::instance.InstallPackage(Package()); });
        Clear(QFileInfo(Package()).absolutePath() + QStringLiteral("/package"));
        return elapsed;
    }

    double UnzipMs() const
    {
        const QString target = Scratch() + QStringLiteral("/unzipped");
        const double elapsed = Milliseconds([&] {
            QProcess unzip;
            unzip.start(QStringLiteral("unzip"),
                        {QStringLiteral("-q"), Package(), QStringLiteral("-d"), target});
            if (!unzip.waitForFinished(-1) || unzip.exitCode() != 0)
                qFatal("unzip failed");
        });
        Clear(target);
        return elapsed;
    }

private:
    /// Each run writes new files, and no write of one run reaches the disk during the next.
    static void Clear(const QString &folder)
    {
        if (QDir(folder).isEmpty() || !QDir(folder).removeRecursively())
            qFatal("nothing was unpacked into %s", qPrintable(folder));
    }
};

Figure Measure(const Machine &machine)
{
    machine.UnzipMs();
    Figure figure;
    for (int run = 0; run < kRuns; ++run) {
        figure.ours.append(machine.UpdaterMs());
        figure.theirs.append(machine.UnzipMs());
    }
    figure.unit = QStringLiteral("ms");
    figure.comparedWith = QStringLiteral("unzip -q");
    return figure;
}

void MeasureLargeFiles(const QString &what, Content content)
{
    Figure figure = Measure(Machine(kLargeFiles, kLargeSize, content));
    figure.name = QStringLiteral("extraction of ten files of 50 MiB, %1").arg(what);
    figure.judged = Figure::Ratio;
    figure.bound = 1.0;
    Print(figure);
}

void MeasureSmallFiles(int count)
{
    Figure figure = Measure(Machine(count, kSmallSize, Text));
    figure.name = QStringLiteral("extraction of %1 files of 2 KiB").arg(count);
    figure.judged = Figure::Ratio;
    figure.bound = 1.3;
    figure.chart = QStringLiteral("extraction");
    figure.x = count;
    Print(figure);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    KeepQuiet();
    MeasureLargeFiles(QStringLiteral("stored"), Noise);
    MeasureLargeFiles(QStringLiteral("deflated"), Text);
    for (const int count : {1000, 10000, 60000})
        MeasureSmallFiles(count);
    return 0;
}
