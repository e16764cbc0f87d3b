// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * Small file systems for a test. The process must enter a mount namespace for them at the beginning
 * of main(), before it starts a thread. Any failure ends the program with a message. Linux only.
 */
namespace OwnDisk
{

/// Enters a mount namespace, which the children inherit.
void EnterNamespace();

} // namespace OwnDisk

/// A mount that lasts as long as the object; open files stay usable.
class Mount
{
public:
    ~Mount();

    Mount(Mount &&other) noexcept;
    Mount(const Mount &) = delete;
    Mount &operator=(const Mount &) = delete;
    Mount &operator=(Mount &&) = delete;

    /// An empty file system of @p bytes at @p folder, which is created.
    static Mount Empty(const QString &folder, qint64 bytes);

    /// Makes the existing file or folder @p path read-only.
    static Mount ReadOnly(const QString &path);

    /// Mounts @p source at @p path, which then cannot be removed or renamed.
    static Mount Over(const QString &path, const QString &source);

private:
    explicit Mount(QString path);

    QString m_path;
};
