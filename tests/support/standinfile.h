#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

/**
 * A copy of the stand-in program (standin.cpp) under a name of the test's choice. Every check fails
 * the program with a message when the file system does not play along. Any thread.
 */
class StandIn
{
public:
    /// Copies the stand-in to @p path, with the system's suffix for programs when @p path has none.
    explicit StandIn(const QString &path);

    /// Ends a copy that was told to stay.
    ~StandIn();

    QString Path() const { return m_path; }

    /// The arguments of each start so far, in order.
    QVector<QStringList> Calls() const;

    /// Waits until it was started @p count times; false when that did not happen in time.
    bool WaitForCalls(int count, int timeoutMs = 15000) const;

    /// What the next starts do: lines as standin.cpp reads them.
    void SetScript(const QByteArray &lines);

    /// A script line that prints @p bytes.
    static QByteArray Prints(const QByteArray &bytes);

    /// Starts it so that it stays, and waits until it runs (so that tasklist lists it).
    void StartAndStay();

    /// True while the copy that StartAndStay() started runs.
    bool IsRunning() const;

private:
    Q_DISABLE_COPY(StandIn)

    QString m_path;
    qint64 m_processId = 0;
};
