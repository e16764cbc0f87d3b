#include "release/publish/commandline.h"
#include "release/publish/hostsystem.h"
#include "release/publish/publishrelease.h"
#include "release/publish/report.h"
#include "release/publish/verifyrelease.h"

#include <QCoreApplication>

#include <cstdio>

namespace
{

/// The framework speaks of damaged archives in its own words; the tool has better ones.
void SilenceFramework(QtMsgType, const QMessageLogContext &, const QString &) {}

Progress::Style ProgressStyle(const Request &request)
{
    if (request.asJson)
        return Progress::Silent;
    return HostSystem::ErrorsGoToTerminal() ? Progress::Bar : Progress::Lines;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(SilenceFramework);
    HostSystem::NoteInterruptions();

    const CommandLine commandLine = ReadCommandLine(QCoreApplication::arguments().mid(1));
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
    const Outcome outcome = request.command == Request::Verify ? VerifyRelease(request, progress)
                                                               : PublishRelease(request, progress);
    progress.End();
    return Report(outcome, request.asJson);
}
