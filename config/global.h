// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

/**
 * The shared state of a run: the configuration, the answer of the update service and the command
 * line, with the operations on them.
 *
 * There is exactly one object, Global::instance. It is constructed before main() and destroyed
 * after it. Its fields are plain data without a lock. ReadConfig() fills in the configuration on
 * the GUI thread before any other thread exists. Later the worker thread writes the service's
 * answer and then announces it; the dialogs read it only after that.
 *
 * Operations never throw. Unless stated otherwise they return 0 for success and -1 for failure, and
 * log the reason of a failure. Each is implemented in the folder of its subsystem.
 */
class Global : public QObject
{
    Q_OBJECT

public:
    static Global instance;

    static constexpr int Success = 0;
    static constexpr int Failure = -1;

    /** @name Configuration (config/) */
    ///@{

    /**
     * Loads updateconfig.json from the working directory, the client's configuration and the
     * client's language choice. Returns -1 when one of the two configurations is missing or not
     * JSON. When the language choice cannot be read, the system's language is used.
     */
    int ReadConfig();

    /**
     * Writes @ref latestVersion into updateconfig.json. @p kind is a ConfigContract::Selector: the
     * version that the user silenced, or the one that is installed. Any other word rewrites the
     * file without changing a value. All other keys are kept. The file is not truncated first.
     */
    int WriteConfigToFile(const QString &kind);

    /// Writes @ref latestVersion into the client's own configuration, at client/version.
    int WriteConfigToClientFile();

    /// True when @ref language is exactly "en": the interface is English. It is Chinese otherwise.
    bool IsEnglish() const;

    /// Full path of the client's executable: @ref appPath directly followed by @ref appName.
    QString ClientProgram() const;

    /// Full path of the client's configuration: @ref appPath directly followed by @ref
    /// appConfigFile.
    QString ClientConfigFile() const;
    ///@}

    /** @name Update service (net/) */
    ///@{

    /// Stores the JSON answer of the update service in the fields below. Worker thread.
    int ParseServiceReply(const QByteArray &body);

    /**
     * The MD5 digest (RFC 1321) of the whole file as 32 lower-case hexadecimal digits. An empty
     * string when the file cannot be opened; a wrong digest when it cannot be read to its end. The
     * file is read in small pieces, so it may have any size.
     */
    QString FileMd5(const QString &path) const;
    ///@}

    /** @name Installation and client process (install/). Each blocks its caller's thread. */
    ///@{

    /**
     * Unpacks the zip package next to itself, leaves the release notes and their marker for the
     * client, copies the unpacked folder over the parent of the working directory and records the
     * new version. Returns -1 at the first step that fails, without undoing the earlier ones; but a
     * version that cannot be recorded is only logged. @p packageFile must contain ".zip".
     */
    int InstallPackage(const QString &packageFile);

    /// Writes @p text to @ref scriptPath, for an installation by script.
    void WriteScript(const QString &text) const;

    /**
     * Returns -1 when the check goes on. Returns 0 when this run is over, because a running client
     * was passed a meeting link or was started again. Blocks for up to two runs of tasklist (30000
     * ms each).
     */
    int CheckClientRunning();

    /**
     * Waits 500 ms, starts the client with its ClientArguments(), which replace @ref cmdLineArgs,
     * and asks the application to quit. Always returns 0: a failed start is not detected.
     */
    int LaunchClient();

    /// Starts @p program with @ref cmdLineArgs, from which it removes the updater's own switches,
    /// and asks the application to quit. Always returns 0.
    int LaunchProgram(const QString &program);

    /// Free bytes of the volume that contains @p path, or 0 when the system cannot tell.
    quint64 GetDiskFreeBytes(const QString &path) const;
    ///@}

    // From updateconfig.json and the files it names.
    QString appName;        ///< image name of the client, as the task list shows it
    QString appConfigFile;  ///< name of the client's configuration file
    QString appPath;        ///< the client's folder, used as a plain prefix: ends with a separator
    QString updateCheckUrl; ///< address of the update service
    QString updatePackageUrl; ///< the package's address without the @ref id at its end
    QString currentVersion;   ///< installed version of the client
    QString noRemindVersion;  ///< offered version that the user silenced
    QString packageDir;       ///< the package's folder; later the source of the copy
    qint32 noRemind = 0;      ///< 1 when @ref noRemindVersion is in force

    // From the update service.
    QString code;              ///< "000000" for success
    QString desc;              ///< stored only
    QString id;                ///< the package's identifier
    QString update;            ///< "0" no update, "1" optional prompt, anything else forced
    QString latestVersion;     ///< the offered version
    QString latestVersionUrl;  ///< its last part names the local package file
    QString latestVersionInfo; ///< release notes in the language shown
    QString md5;               ///< expected digest, lower-case hexadecimal
    QString sha1;              ///< stored only
    qint64 packageSize = 0;    ///< announced size in bytes
    qint32 updateType = 0;     ///< a ServiceContract::PackageKind, or neither

    QString scriptPath; ///< full path of update.scpt
    QString language;   ///< interface language code

    /// The updater's arguments after the program name; what is left of them is passed on.
    QStringList cmdLineArgs;

private:
    Global() = default;

    bool ReadUpdateConfig();
    bool ReadClientConfig();
    void ReadLanguage();
    bool RunXcopy();
};
