// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <functional>

/// Notices when the program that writes a file closes it: the file is complete then.
class CloseWatch
{
public:
    /// Watches the folder of @p path, which must exist.
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
