// SPDX-License-Identifier: MIT
#include "bench/packageserver.h"

#include "config/global.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QTest>

namespace
{

constexpr int kInstalled = 1;
constexpr int kNeitherStartedNorInstalled = 2;
constexpr int kMebibyte = 1024 * 1024;
constexpr double kMillisecondsInSecond = 1000;

QString PackageName(int mebibytes)
{
    return QStringLiteral("%1.zip").arg(mebibytes);
}

} // namespace

PackageServer::PackageServer(int argc, char *argv[])
{
    if (argc != 4)
        qFatal("usage: %s PORT FOLDER PACKAGES", argv[0]);
    m_port = QString::fromLocal8Bit(argv[1]);
    m_folder = QString::fromLocal8Bit(argv[2]);
    m_packages = QString::fromLocal8Bit(argv[3]);
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
    lines.removeLast(); // an incomplete line, or nothing
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
    Start(run, mebibytes, {{QStringLiteral("updateType"), kNeitherStartedNorInstalled}},
          beforeTheOffer);
}

void PackageServer::StartUpdate(UpdaterRun &run, int mebibytes) const
{
    const QString package = m_packages + QLatin1Char('/') + PackageName(mebibytes);
    Start(run, mebibytes,
          {{QStringLiteral("updateType"), kInstalled},
           {QStringLiteral("md5"), Global::instance.FileMd5(package)}},
          [] {});
}

void PackageServer::Start(UpdaterRun &run, int mebibytes, const QJsonObject &changes,
                          const std::function<void()> &beforeTheOffer) const
{
    run.Configure({{QStringLiteral("updatePackageUrl"), PackagesUrl()}});
    const QString check = QStringLiteral("/check");
    QJsonObject offer{{QStringLiteral("id"), PackageName(mebibytes)},
                      {QStringLiteral("update"), QStringLiteral("1")},
                      {QStringLiteral("latestVersion"), QStringLiteral("2.1.3")},
                      {QStringLiteral("latestVersionUrl"), Url(mebibytes)},
                      {QStringLiteral("packageSize"), mebibytes * kMebibyte}};
    for (auto change = changes.begin(); change != changes.end(); ++change)
        offer.insert(change.key(), change.value());
    run.server.Script(check, QJsonObject{{QStringLiteral("body"),
                                          QString::fromUtf8(UpdaterRun::CheckAnswer(offer))},
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
