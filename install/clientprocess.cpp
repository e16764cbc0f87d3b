// SPDX-License-Identifier: MIT
#include "install/clientprocess.h"

#include "config/arguments.h"
#include "config/global.h"
#include "install/platform.h"

#include <QCoreApplication>
#include <QDebug>
#include <QProcess>

namespace
{

constexpr int kTasklistLimitMs = 30000;
constexpr unsigned long kPauseBeforeClientMs = 500;

/// One run of tasklist. A tasklist that has not finished within the limit is ended with the object.
class TasklistRun
{
public:
    explicit TasklistRun(const QString &appName) : m_appName(appName)
    {
        m_process.start(QStringLiteral("tasklist"),
                        {QStringLiteral("/FO"), QStringLiteral("CSV"), QStringLiteral("/FI"),
                         QStringLiteral("IMAGENAME eq %1").arg(appName)});
        m_process.waitForFinished(kTasklistLimitMs);
        // constData() makes the text end at the first zero byte; the array would not.
        m_output = QString::fromLocal8Bit(m_process.readAllStandardOutput().constData());
    }
    ~TasklistRun() { m_process.close(); }
    Q_DISABLE_COPY(TasklistRun)

    bool ListsClient() const { return m_output.contains(m_appName); }

private:
    const QString m_appName;
    QProcess m_process;
    QString m_output;
};

/// Passes the meeting link among @p arguments, if there is one, to a running client.
bool HandOverMeetingLink(const QString &clientProgram, const QStringList &arguments)
{
    const int link = IndexOfMeetingLink(arguments);
    if (link < 0)
        return false;
    QProcess::startDetached(clientProgram, {ClientUrlArgument(arguments.at(link))});
    return true;
}

} // namespace

bool ClientIsListed(const QString &appName)
{
    return TasklistRun(appName).ListsClient();
}

void StopRunningClient(const QString &appName)
{
    const TasklistRun tasklist(appName);
    if (tasklist.ListsClient())
        QProcess::execute(QStringLiteral("taskkill"),
                          {QStringLiteral("/im"), appName, QStringLiteral("/f")});
}

int Global::CheckClientRunning()
{
    {
        const TasklistRun tasklist(appName);
        if (tasklist.ListsClient()) {
            qInfo() << appName << " Already Run...";
            if (HandOverMeetingLink(ClientProgram(), cmdLineArgs))
                return Success;
        }
    }
    if (HasForcingSwitch(cmdLineArgs))
        return Failure;
    return ClientIsListed(appName) ? LaunchClient() : Failure;
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
    cmdLineArgs = WithoutUpdaterSwitches(cmdLineArgs);
    Platform::MakeStartable(program);
    QProcess::startDetached(program, cmdLineArgs);
    qInfo() << program << " starting...";
    QCoreApplication::quit();
    return Success;
}
