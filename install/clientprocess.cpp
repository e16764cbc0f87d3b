#include "install/clientprocess.h"

#include "config/global.h"
#include "install/platform.h"

#include <QCoreApplication>
#include <QDebug>
#include <QStringList>

#include <algorithm>

namespace
{

constexpr int kTasklistLimitMs = 30000;
constexpr unsigned long kPauseBeforeClientMs = 500;

int IndexOfMeetingLink(const QStringList &arguments)
{
    const auto link = std::find_if(arguments.cbegin(), arguments.cend(), IsMeetingLink);
    return link == arguments.cend() ? -1 : int(link - arguments.cbegin());
}

} // namespace

bool ClientIsListed(QProcess &tasklist, const QString &appName)
{
    tasklist.start(QStringLiteral("tasklist"),
                   {QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                    QStringLiteral("IMAGENAME eq %1").arg(appName)});
    tasklist.waitForFinished(kTasklistLimitMs);
    // From the bytes rather than the array: the text ends at the first zero byte.
    const QString output = QString::fromLocal8Bit(tasklist.readAllStandardOutput().constData());
    return output.contains(appName);
}

void StopRunningClient(const QString &appName)
{
    QProcess tasklist;
    if (ClientIsListed(tasklist, appName))
        QProcess::execute(QStringLiteral("taskkill"),
                          {QStringLiteral("/im"), appName, QStringLiteral("/f")});
    tasklist.close();
}

bool IsMeetingLink(const QString &argument)
{
    return argument.contains(QLatin1String("qorb-meeting"));
}

QString ClientUrlArgument(const QString &meetingLink)
{
    return QStringLiteral("--url=") + meetingLink.split(QStringLiteral("://")).value(1);
}

QStringList ProgramArguments(QStringList arguments)
{
    arguments.removeAll(Global::NoRemindSwitch);
    arguments.removeAll(Global::ImmediatelySwitch);
    return arguments;
}

QStringList ClientArguments(const QStringList &arguments)
{
    QStringList passed = ProgramArguments(arguments);
    const int link = IndexOfMeetingLink(passed);
    if (link >= 0)
        passed.append(ClientUrlArgument(passed.takeAt(link)));
    if (passed.isEmpty())
        passed.append(QStringLiteral("-autoupdate"));
    return passed;
}

int Global::CheckClientRunning()
{
    QProcess tasklist;
    if (ClientIsListed(tasklist, appName)) {
        qInfo() << appName << " Already Run...";
        const int link = IndexOfMeetingLink(cmdLineArgs);
        if (link >= 0) {
            QProcess::startDetached(ClientProgram(), {ClientUrlArgument(cmdLineArgs.at(link))});
            tasklist.close();
            return Success;
        }
    }
    tasklist.close();
    if (HasForcingSwitch())
        return Failure;

    const bool running = ClientIsListed(tasklist, appName);
    tasklist.close();
    return running ? LaunchClient() : Failure;
}

int Global::LaunchClient()
{
    cmdLineArgs = ClientArguments(cmdLineArgs);
    Platform::Pause(kPauseBeforeClientMs);
    QProcess::startDetached(ClientProgram(), cmdLineArgs);
    qInfo() << appName << " starting...";
    QCoreApplication::quit();
    return Success;
}

int Global::LaunchProgram(const QString &program)
{
    cmdLineArgs = ProgramArguments(cmdLineArgs);
    Platform::MakeStartable(program);
    QProcess::startDetached(program, cmdLineArgs);
    qInfo() << program << " starting...";
    QCoreApplication::quit();
    return Success;
}

quint64 Global::GetDiskFreeBytes(const QString &path) const
{
    const Platform::FreeSpace space = Platform::VolumeFreeSpace(path);
    if (!space.ok) {
        qDebug() << "Call to GetDiskFreeSpaceEx() failed:" << space.errorCode;
        return 0;
    }
    return space.bytes;
}
