#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <functional>

/// Notices when a file in a folder is closed by whoever wrote it: then all of it is there.
class CloseWatch
{
public:
    /// Watches the folder of @p path, which must be there.
    explicit CloseWatch(const QString &path);
    ~CloseWatch();

    /**
     * Waits for the file to be closed and returns when that was, in milliseconds since the epoch;
     * fails the program when it is not closed in time. Calls @p meanwhile every 20 ms until then.
     */
    double Wait(const std::function<void()> &meanwhile = [] {}) const;

private:
    Q_DISABLE_COPY(CloseWatch)

    bool WasClosed() const;

    QByteArray m_name;
    int m_queue;
};
