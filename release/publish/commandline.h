#pragma once

#include <QString>
#include <QStringList>

/// Which signatures (Authenticode) the programs of a release must have.
struct SignatureDemand {
    bool isRequired = false; ///< otherwise nothing is checked
    QString signer;          ///< the common name in the signer's certificate; empty: anyone's
    QString authorities;     ///< a PEM file of the certificates to trust; empty: the system's
};

/// What the command line asks for.
struct Request {
    enum Command {
        Zip,
        Installer,
        Promote,
        Verify,
        Rollout,
        Advance,
        Stop,
        Resume,
        Rollback,
        List,
        Push,
        ReportOnLogs,
        CheckConfiguration
    };

    Command command = Zip;
    QString source; ///< the client's folder, the installer, the tree or the configuration
    QString name;   ///< of the package, without version; empty: the installer's own file name
    QString version;
    bool forced = false;
    QString notesZhFile;
    QString notesEnFile;
    QString out;
    QString urlPrefix;
    QString updaterFolder; ///< the updater's folder, relative to the client's
    QStringList exclude;   ///< patterns of what stays out of the package, for Exclusion
    QString configFile;    ///< the client's version file, relative to its folder; empty: not named
    QString knownDigests;  ///< a file of digests of earlier releases; empty: none
    int share = 0;         ///< in parts of AllParts; 0: the release is not rolled out yet
    bool allowShorterVersion = false;
    bool allowUpdater = false; ///< the updater's folder may be in a package
    SignatureDemand signature;
    QStringList nodes;               ///< where to push a tree: HOST:DIR or DIR
    QStringList logs;                ///< access logs of all nodes
    QString htmlFile;                ///< the page of the report; empty: none
    QString product;                 ///< whose lines of the logs count
    QString plan;                    ///< as ReadPlan() reads it; empty: none
    double stopAboveInterrupted = 2; ///< percentage points more interrupted downloads than before
    double stopAboveUnchanged = 5;   ///< percent of completed downloads that changed nothing
    QString clientFolder;            ///< the client as it ships; empty: only its file is checked
    bool packagesAreInstallers = false;
    QStringList from;             ///< patterns of installed versions
    QStringList networks;         ///< as NetworkPrefix reads them
    bool forgetsNetworks = false; ///< those of before come first no longer
    double linkGbit = 0;          ///< of the servers' line to the clients; 0: unknown
    double clients = 0;           ///< how many there are; with linkGbit
    bool downgrade = false;       ///< who has the release is offered the one before
    bool dryRun = false;          ///< tell what would be done, and write nothing
    bool asJson = false;
};

/// One of a request, a help text or version that was asked for, or what is wrong with it.
struct CommandLine {
    Request request;
    QString help;
    QString error;               ///< one line
    bool asksForVersion = false; ///< of the tool; there is no request then
    bool asJson = false;         ///< as the request's, but known of a wrong command line too
};

/// Reads the arguments after the program's name. Pure.
CommandLine ReadCommandLine(const QStringList &arguments);
