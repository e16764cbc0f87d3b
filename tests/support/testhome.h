#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

#include <utility>
#include <vector>

/**
 * A machine of its own for one test: a home folder, a folder for temporary files (which holds the
 * key of the single-instance guard), the commands tasklist, taskkill and xcopy on the search path,
 * and a client's folder with the program's folder below it, which is made the working folder.
 * Resets Global::instance. One at a time a process; GUI thread.
 */
class TestHome
{
public:
    TestHome();
    ~TestHome();

    /// The home folder, as QDir::homePath() reports it.
    QString Home() const;

    /// The client's installation folder, without a slash at its end.
    QString ClientFolder() const { return m_root.filePath(QStringLiteral("Client")); }

    /// The program's folder, directly below the client's: the working folder.
    QString ProgramFolder() const { return ClientFolder() + QStringLiteral("/AutoUpdate"); }

    /// A folder for anything else the test needs; made on the first call.
    QString Scratch() const;

    /// A folder that stands first on the search path: a stand-in put there is found before others.
    QString CommandsFolder() const;

    /// The client's data folder under the home folder; made on the first call.
    QString ClientDataFolder() const;

    /// An image name that no other test on this machine uses, such as "Client-4711-1.exe".
    static QString UniqueImageName();

    /// Writes updateconfig.json as given.
    void WriteUpdateConfig(const QByteArray &content) const;

    /// Lines of AutoUpdate.log without their CR LF; every line must have it.
    QStringList LogLines() const;

private:
    Q_DISABLE_COPY(TestHome)

    void SetVariable(const char *name, const QByteArray &value);

    QTemporaryDir m_root;
    std::vector<std::pair<const char *, QByteArray>> m_oldVariables;
    QString m_oldWorkingFolder;
};

/// The whole content of a file; fails the program when it cannot be read.
QByteArray ReadFile(const QString &path);

/// Writes a file, its folders included; fails the program when it cannot.
void WriteFile(const QString &path, const QByteArray &content);

/// Puts every field of Global::instance back to its value at construction.
void ResetGlobal();

/**
 * Runs the application's event loop until something quits it. False when nothing did in time. Use
 * this rather than waiting loops around code that calls QCoreApplication::quit(): a quit outside a
 * running loop of the application would end the next waiting loop at once.
 */
bool RunUntilQuit(int timeoutMs = 15000);
