// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <utility>
#include <vector>

/**
 * A private machine for one test: a home folder, a folder for temporary files (with the key file of
 * the single-instance guard), the commands tasklist, taskkill and xcopy on the search path, and the
 * client's folder with the program's folder below it, which becomes the working folder. Resets
 * Global::instance. One at a time per process; GUI thread.
 */
class TestHome
{
public:
    TestHome();
    ~TestHome();

    /// The home folder, as QDir::homePath() reports it.
    QString Home() const;

    /// The client's installation folder, without a trailing slash.
    QString ClientFolder() const { return m_root.filePath(QStringLiteral("Client")); }

    /// The program's folder, directly below the client's, and the working folder.
    QString ProgramFolder() const { return ClientFolder() + QStringLiteral("/AutoUpdate"); }

    /// A folder for anything else that a test needs; created by the first call.
    QString Scratch() const;

    /// The first folder of the search path: put stand-ins for commands there.
    QString CommandsFolder() const;

    /// The client's data folder in the home folder; created by the first call.
    QString ClientDataFolder() const;

    // Full paths of the files that the program reads and writes.

    QString UpdateConfigFile() const
    {
        return ProgramFolder() + QStringLiteral("/updateconfig.json");
    }
    QString NotesFile() const { return ClientDataFolder() + QStringLiteral("/update.log"); }
    QString MarkerFile() const
    {
        return ClientDataFolder() + QStringLiteral("/isShowUpdataInfo.txt");
    }
    QString LogFile() const
    {
        return Home() + QStringLiteral("/AppData/Local/AutoUpdate/AutoUpdate.log");
    }

    /// The full path of a file of the client.
    QString Installed(const QString &path) const
    {
        return ClientFolder() + QLatin1Char('/') + path;
    }

    /// A program name that no other test on this computer uses, such as "Client-4711-1.exe".
    static QString UniqueImageName();

    /// Writes updateconfig.json.
    void WriteUpdateConfig(const QByteArray &content) const;

    /// The lines of AutoUpdate.log; fails the program when the last one has no CR LF.
    QStringList LogLines() const;

private:
    Q_DISABLE_COPY(TestHome)

    void SetVariable(const char *name, const QByteArray &value);

    QTemporaryDir m_root;
    std::vector<std::pair<const char *, QByteArray>> m_oldVariables;
    QString m_oldWorkingFolder;
};

/// The content of a file; fails the program when it cannot be read.
QByteArray ReadFile(const QString &path);

/// Writes a file and creates its folders; fails the program when that is impossible.
void WriteFile(const QString &path, const QByteArray &content);

/// Writes an executable shell script. POSIX only; fails the program when it cannot.
void WriteShellScript(const QString &path, const QByteArray &lines);

/// Gives every field of Global::instance its initial value.
void ResetGlobal();

/**
 * Runs the application's event loop until something quits it; false when nothing does in time. Code
 * that calls QCoreApplication::quit() needs this loop: a quit outside of it would end the next one
 * at once.
 */
bool RunUntilQuit(int timeoutMs = 15000);
