#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

/**
 * The one shared state of a run: what the configuration files say, what the update service
 * answered, the command line, and the operations on them.
 *
 * There is exactly one object, Global::instance, built before main() and destroyed after it. Its
 * fields are plain data without a lock: ReadConfig() fills the configuration on the GUI thread
 * before any other thread exists; afterwards the worker thread writes the service's answer before
 * it announces it, and the dialogs read it only then.
 *
 * Operations never throw. Unless they say otherwise they return 0 for success and -1 for failure,
 * and have logged the reason. Each is defined in the folder of the subsystem that owns it.
 */
class Global : public QObject
{
    Q_OBJECT

public:
    static Global instance;

    static constexpr int Success = 0;
    static constexpr int Failure = -1;

    /// Command line switches of the updater; neither is ever passed on to a started program.
    static const QString NoRemindSwitch;    ///< "-noremid": check although the client runs
    static const QString ImmediatelySwitch; ///< "-immediately": the same, and update without asking

    /// The values of @ref updateType that have a meaning.
    enum PackageKind { InstallerPackage = 0, ZipPackage = 1 };

    /** @name Configuration (config/) */
    ///@{

    /**
     * Loads updateconfig.json from the working directory, the client's configuration and its
     * language choice. Returns -1 when one of the two configurations is missing or not JSON; the
     * language falls back to the system's and never makes it fail.
     */
    int ReadConfig();

    /**
     * Writes @ref latestVersion into updateconfig.json: as the version never to be prompted again
     * (@p kind "remid") or as the installed one ("version"). Any other word rewrites the file
     * unchanged. Keys that are not touched are kept. The file is written over, not truncated.
     */
    int WriteConfigToFile(const QString &kind);

    /// Writes @ref latestVersion into the client's own configuration, at client/version.
    int WriteConfigToClientFile();

    /// True when the interface is English: @ref language is exactly "en". Chinese otherwise.
    bool IsEnglish() const;

    /// Full path of the client's executable: @ref appPath and @ref appName as they stand.
    QString ClientProgram() const;

    /// Full path of the client's configuration: @ref appPath and @ref appConfigFile as they stand.
    QString ClientConfigFile() const;

    /// True when the updater was started with "-noremid" or "-immediately".
    bool HasForcingSwitch() const;
    ///@}

    /** @name Update service (net/) */
    ///@{

    /// Stores the JSON answer of the update service in the fields below. Worker thread.
    int ParseServiceReply(const QByteArray &body);

    /**
     * The MD5 digest (RFC 1321) of the whole file as 32 lower-case hexadecimal digits. An empty
     * string when the file cannot be opened; the digest of something else when it cannot be read
     * to its end. Reads small pieces: the file may have any size.
     */
    QString FileMd5(const QString &path) const;
    ///@}

    /** @name Installation and client process (install/). Each blocks its caller's thread. */
    ///@{

    /**
     * Unpacks the zip package beside itself, leaves the release notes and their marker for the
     * client, copies the unpacked folder over the parent of the working directory and records the
     * new version. Nothing is rolled back. Returns -1 at the first step that fails; a version that
     * could not be recorded is only logged. @p packageFile must contain ".zip".
     */
    int InstallPackage(const QString &packageFile);

    /// Writes @p text to @ref scriptPath, for an install that is driven by a script.
    void WriteScript(const QString &text) const;

    /**
     * Decides whether the check goes on: -1 to go on; 0 when a running client was handed a meeting
     * link or was started again, so that this run is over. Blocks for up to two runs of tasklist
     * (30000 ms each).
     */
    int CheckClientRunning();

    /**
     * Starts the client with what is left of @ref cmdLineArgs (which it edits in place) and asks
     * the application to quit. Waits 500 ms first. Always 0: a start that fails is not detected.
     */
    int LaunchClient();

    /// Starts @p program with @ref cmdLineArgs less the updater's own switches, and quits. Always
    /// 0.
    int LaunchProgram(const QString &program);

    /// Free bytes of the volume that @p path lies on, or 0 when the system gives none.
    quint64 GetDiskFreeBytes(const QString &path) const;
    ///@}

    // From updateconfig.json and the files it names.
    QString appName;        ///< image name of the client, as the task list shows it
    QString appConfigFile;  ///< name of the client's configuration file
    QString appPath;        ///< the client's folder, used as a plain prefix: ends with a separator
    QString updateCheckUrl; ///< address of the update service
    QString updatePackageUrl; ///< what precedes @ref id in the package's address
    QString currentVersion;   ///< installed version of the client
    QString noRemindVersion;  ///< offered version that the user silenced
    QString packageDir;       ///< the package's folder; later the source that was copied
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
    qint32 updateType = 0;     ///< a PackageKind, or a value that means neither

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
