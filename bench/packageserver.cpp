#include "bench/packageserver.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QTest>

namespace
{

constexpr int kNeitherStartedNorInstalled = 2;
constexpr int kMebibyte = 1024 * 1024;
constexpr double kMillisecondsInSecond = 1000;

QString PackageName(int mebibytes)
{
    return QString::number(mebibytes);
}

} // namespace

PackageServer::PackageServer(int argc, char *argv[])
{
    if (argc != 3)
        qFatal("usage: %s PORT FOLDER", argv[0]);
    m_port = QString::fromLocal8Bit(argv[1]);
    m_folder = QString::fromLocal8Bit(argv[2]);
}

QString PackageServer::PackagesUrl() const
{
    return QStringLiteral("https://localhost:%1/packages/").arg(m_port);
}

QString PackageServer::Url(int mebibytes) const
{
    return PackagesUrl() + PackageName(mebibytes);
}

QString PackageServer::Certificate() const
{
    return m_folder + QStringLiteral("/certificate.pem");
}

QList<QByteArray> PackageServer::Log() const
{
    QList<QByteArray> lines = ReadFile(m_folder + QStringLiteral("/updates.log")).split('\n');
    lines.removeLast(); // what follows the last line break
    return lines;
}

int PackageServer::RequestCount() const
{
    return Log().size();
}

double PackageServer::RequestStartMs(int index) const
{
    if (!QTest::qWaitFor([&] { return RequestCount() > index; }, 30000))
        qFatal("nginx never wrote down request %d", index);
    const QJsonObject line = QJsonDocument::fromJson(Log().at(index)).object();
    const double start = line.value(QStringLiteral("end")).toDouble() -
                         line.value(QStringLiteral("seconds")).toDouble();
    return start * kMillisecondsInSecond;
}

void PackageServer::StartDownload(UpdaterRun &run, int mebibytes,
                                  const std::function<void()> &beforeTheOffer) const
{
    run.Configure({{QStringLiteral("updatePackageUrl"), PackagesUrl()}});
    const QString check = QStringLiteral("/check");
    const QByteArray answer =
        UpdaterRun::CheckAnswer({{QStringLiteral("id"), PackageName(mebibytes)},
                                 {QStringLiteral("update"), QStringLiteral("1")},
                                 {QStringLiteral("latestVersion"), QStringLiteral("2.1.3")},
                                 {QStringLiteral("latestVersionUrl"), Url(mebibytes)},
                                 {QStringLiteral("packageSize"), mebibytes * kMebibyte},
                                 {QStringLiteral("updateType"), kNeitherStartedNorInstalled}});
    run.server.Script(check, QJsonObject{{QStringLiteral("body"), QString::fromUtf8(answer)},
                                         {QStringLiteral("hold"), QStringLiteral("before")}});
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(TRUST_LIBRARY));
    environment.insert(QStringLiteral("BENCH_CERTIFICATE"), Certificate());
    run.process.setProcessEnvironment(environment);
    run.Start({QStringLiteral("-immediately")});
    if (!run.server.WaitForRequests(1))
        qFatal("the updater never asked for an update");
    beforeTheOffer();
    run.server.Release(check);
}

QString PackageServer::Target(const UpdaterRun &run, int mebibytes)
{
    const QString path = run.PackagePath(PackageName(mebibytes));
    QDir().mkpath(QFileInfo(path).absolutePath());
    return path;
}
