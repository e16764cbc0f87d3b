#pragma once

#include <QString>
#include <QStringList>

/// What the command line asks for.
struct Request {
    enum Command { Zip, Installer, Verify };

    Command command = Zip;
    QString source; ///< the client's folder, the installer, or the release to verify
    QString name;   ///< of the package, without version; empty: the installer's own file name
    QString version;
    bool forced = false;
    QString notesZhFile;
    QString notesEnFile;
    QString out;
    QString urlPrefix;
    QString updaterFolder; ///< the updater's folder, relative to the client's
    QStringList exclude;   ///< patterns of what stays out of the package, for Exclusion
    bool allowShorterVersion = false;
    bool allowUpdater = false; ///< the updater's folder may be in a package
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
