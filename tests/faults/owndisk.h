#pragma once

#include <QString>

/**
 * Small file systems of a test's own. They need a mount namespace, which the process must enter
 * first thing in main(), before any thread is started. Linux only. Whatever the system denies ends
 * the program with a message.
 */
namespace OwnDisk
{

/// Gives this process and those it starts a view of the mounted file systems of their own.
void EnterNamespace();

} // namespace OwnDisk

/// A mount that is taken away again with the object; files still open stay usable.
class Mount
{
public:
    ~Mount();

    Mount(Mount &&other) noexcept;
    Mount(const Mount &) = delete;
    Mount &operator=(const Mount &) = delete;
    Mount &operator=(Mount &&) = delete;

    /// An empty file system of @p bytes at @p folder, which is made.
    static Mount Empty(const QString &folder, qint64 bytes);

    /// The file or folder @p path, there already, on a file system that takes no changes.
    static Mount ReadOnly(const QString &path);

    /// @p source also at @p path; neither can be removed or renamed there while it lasts.
    static Mount Over(const QString &path, const QString &source);

private:
    explicit Mount(QString path);

    QString m_path;
};
