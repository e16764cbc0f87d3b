// SPDX-License-Identifier: MIT
#include "release/publish/base/hostsystem.h"
#include "release/publish/base/report.h"
#include "release/publish/checking/configcheck.h"
#include "release/publish/checking/verifyrelease.h"
#include "release/publish/commandline/commandline.h"
#include "release/publish/packing/clientfolder.h"
#include "release/publish/publishing/publishrelease.h"
#include "release/publish/publishing/pushtree.h"
#include "release/publish/rollout/advance.h"
#include "release/publish/rollout/rollout.h"
#include "release/publish/statistics/logreport.h"

#include <QCoreApplication>

#include <cstdio>

namespace
{

/// Suppresses Qt's messages about damaged archives; the tool prints better ones.
void SuppressMessage(QtMsgType, const QMessageLogContext &, const QString &) {}

Progress::Style ProgressStyle(const Request &request)
{
    if (request.asJson)
        return Progress::Silent;
    if (HostSystem::ErrorsGoToTerminal())
        return Progress::Bar;
    // cron would mail every line, every hour.
    return request.command == Request::Advance ? Progress::Silent : Progress::Lines;
}

Outcome Run(const Request &request, Progress &progress)
{
    switch (request.command) {
    case Request::Zip:
    case Request::Installer:
    case Request::Promote:
        return PublishRelease(request, progress);
    case Request::Verify:
        return VerifyRelease(request, progress);
    case Request::Rollout:
        return RollOut(request);
    case Request::Advance:
        return AdvancePlans(request, progress);
    case Request::Stop:
        return StopOffers(request);
    case Request::Resume:
        return ResumeOffers(request);
    case Request::Rollback:
        return RollBack(request);
    case Request::List:
        return ListReleases(request);
    case Request::Push:
        return PushTree(request);
    case Request::ReportOnLogs:
        return ReportLogs({request.logs, request.htmlFile}, progress);
    case Request::CheckConfiguration:
        return CheckConfig({request.source, request.clientFolder,
                            request.packagesAreInstallers ? ServiceContract::InstallerPackage
                                                          : ServiceContract::ZipPackage});
    }
    return {};
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(SuppressMessage);
    HostSystem::NoteInterruptions();

    CommandLine commandLine = ReadCommandLine(QCoreApplication::arguments().mid(1));
    const QByteArrayList lost = HostSystem::UndecodableArguments(argc, argv);
    if (!lost.isEmpty()) {
        // The decoded argument would name a different file.
        commandLine.error =
            QStringLiteral("the argument \"%1\" is not valid UTF-8; rename the file or folder")
                .arg(EscapedName(lost.first()));
    }
    if (!commandLine.error.isEmpty()) {
        Outcome wrong;
        wrong.refusals.append({QStringLiteral("usage"), QString(), commandLine.error});
        Report(wrong, commandLine.asJson);
        return ExitUsage;
    }
    if (!commandLine.help.isEmpty()) {
        std::fputs(commandLine.help.toLocal8Bit().constData(), stdout);
        return ExitOk;
    }

    if (commandLine.asksForVersion) {
        std::puts("publish " PUBLISH_VERSION);
        return ExitOk;
    }

    const Request &request = commandLine.request;
    Progress progress(ProgressStyle(request));
    const Outcome outcome = Run(request, progress);
    progress.End();
    return Report(outcome, request.asJson);
}
