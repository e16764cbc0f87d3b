// SPDX-License-Identifier: MIT
#include "tests/support/standinfile.h"

#include "tests/support/testhome.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#ifdef Q_OS_WIN
#include <qt_windows.h>
#endif

StandIn::StandIn(const QString &path)
    : m_path(QFileInfo(path).suffix().isEmpty() ? path + QStringLiteral(STANDIN_SUFFIX) : path)
{
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    QFile::remove(m_path);
    QFile standIn(QStringLiteral(STANDIN_PROGRAM));
    if (!standIn.copy(m_path))
        qFatal("cannot copy the stand-in to %s: %s", qPrintable(m_path),
               qPrintable(standIn.errorString()));
}

StandIn::~StandIn()
{
    QFile::remove(m_path + QStringLiteral(".script"));
    if (!QTest::qWaitFor([this] { return !IsRunning(); }, 5000))
        qWarning("the stand-in %s does not end", qPrintable(m_path));
}

QVector<QStringList> StandIn::Calls() const
{
    const QString path = m_path + QStringLiteral(".calls");
    if (!QFile::exists(path))
        return {};
    QVector<QStringList> calls;
    QList<QByteArray> lines = ReadFile(path).split('\n');
    lines.removeLast();
    for (const QByteArray &line : lines) {
        QList<QByteArray> arguments = line.split(' ');
        arguments.removeLast();
        QStringList call;
        for (const QByteArray &argument : arguments)
            call.append(QString::fromUtf8(QByteArray::fromHex(argument)));
        calls.append(call);
    }
    return calls;
}

bool StandIn::WaitForCalls(int count, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return Calls().size() >= count; }, timeoutMs);
}

void StandIn::SetScript(const QByteArray &lines)
{
    WriteFile(m_path + QStringLiteral(".script"), lines);
}

QByteArray StandIn::Prints(const QByteArray &bytes)
{
    return "stdout " + bytes.toHex() + '\n';
}

void StandIn::StartAndStay()
{
    const int before = Calls().size();
    SetScript("stay\n");
    if (!QProcess::startDetached(m_path, {}, QString(), &m_processId) || !WaitForCalls(before + 1))
        qFatal("the stand-in %s does not start", qPrintable(m_path));
}

bool StandIn::IsRunning() const
{
#ifdef Q_OS_WIN
    const HANDLE process =
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, DWORD(m_processId));
    DWORD code = 0;
    const bool runs =
        process != nullptr && GetExitCodeProcess(process, &code) != 0 && code == STILL_ACTIVE;
    if (process != nullptr)
        CloseHandle(process);
    return m_processId != 0 && runs;
#else
    return m_processId != 0 && QFileInfo::exists(QStringLiteral("/proc/%1/exe").arg(m_processId));
#endif
}
