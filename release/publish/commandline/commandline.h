// SPDX-License-Identifier: MIT
#pragma once

// QCommandLineParser splits the arguments into options and values. The rest is ours, because its
// help knows no commands, required options or examples, and it accepts an option that is given
// twice.

#include "release/publish/rules/signature.h"

#include <QString>
#include <QStringList>

/// What the command line asks for. Options that are not given have the default value.
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
    QString source; ///< the client's folder, the installer, the release tree or the configuration
    QString name;   ///< of the package, without the version; empty: the installer's own file name
    QString version;
    QString notesZhFile;
    QString notesEnFile;
    QString out;
    QString urlPrefix;
    QString updaterFolder; ///< the updater's folder, relative to the client's
    QStringList exclude;   ///< patterns of files that are not packed, for Exclusion
    QString configFile; ///< the client's version file, relative to the client's folder; empty: none
    QString knownDigests; ///< a SHA256SUMS file of earlier releases; empty: none
    int share = 0;        ///< in thousandths of all clients (AllParts); 0: not rolled out yet
    bool forced = false;
    bool allowShorterVersion = false;
    bool allowUpdater = false; ///< a package may contain the updater's folder
    SignatureDemand signature;
    QStringList nodes; ///< where to push the tree: HOST:DIR or DIR
    QStringList logs;  ///< access logs of all nodes
    QString htmlFile;  ///< where to write the report as a page; empty: nowhere
    QString product;   ///< the product in the logs that the tree belongs to
    QString plan;      ///< in the form that ReadPlan() reads; empty: none
    double stopAboveInterrupted =
        2; ///< in percentage points above the interrupted downloads of earlier releases
    double stopAboveUnchanged =
        5; ///< percentage of networks that still have the old version after a completed download
    QString clientFolder; ///< the client as it ships; empty: only the configuration file is checked
    QStringList from;     ///< patterns of the installed versions that are offered the release
    QStringList networks; ///< in the form that NetworkPrefix reads
    bool forgetsNetworks = false; ///< the networks of earlier roll-outs lose their precedence
    double linkGbit = 0;          ///< bandwidth from the servers to the clients; 0: unknown
    double clients = 0;           ///< how many clients there are; used with linkGbit
    bool downgrade = false;       ///< clients that have the release are offered the previous one
    bool packagesAreInstallers = false;
    bool dryRun = false; ///< report what would be done, and write nothing
    bool asJson = false;
};

/// Exactly one of: a request, a help text, a question for the tool's version, an error.
struct CommandLine {
    Request request;
    QString help;
    QString error;               ///< one line; empty: none
    bool asksForVersion = false; ///< of the tool itself
    bool asJson = false;         ///< like the request's, but also set for a wrong command line
};

/// Reads the arguments that follow the program's name. Pure function.
CommandLine ReadCommandLine(const QStringList &arguments);
