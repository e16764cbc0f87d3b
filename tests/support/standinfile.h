// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

/**
 * A copy of the stand-in program (standin.cpp) in the place of a client, an installer or a command.
 * Fails the program when a file cannot be copied or read. Any thread.
 */
class StandIn
{
public:
    /// Copies the stand-in to @p path, and adds the system's suffix for programs if it has none.
    explicit StandIn(const QString &path);

    /// Ends the copy that StartAndStay() started.
    ~StandIn();

    QString Path() const { return m_path; }

    /// The arguments of each start so far.
    QVector<QStringList> Calls() const;

    /// Waits until it was started @p count times; false when it was not in time.
    bool WaitForCalls(int count, int timeoutMs = 15000) const;

    /// What the next starts do, in the commands of standin.cpp.
    void SetScript(const QByteArray &lines);

    /// The command that prints @p bytes.
    static QByteArray Prints(const QByteArray &bytes);

    /// Starts a copy that keeps running, and waits until tasklist lists it.
    void StartAndStay();

    /// True while the copy that StartAndStay() started runs.
    bool IsRunning() const;

private:
    Q_DISABLE_COPY(StandIn)

    QString m_path;
    qint64 m_processId = 0;
};
