#pragma once

#include "release/publish/commandline.h"
#include "release/publish/report.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/**
 * One who publishes: a new client, notes in both languages, and a place for the release tree, in a
 * folder of their own. Any thread.
 */
class Vendor
{
public:
    Vendor();

    QString Path(const QString &name) const { return m_room.filePath(name); }

    /// The new client's folder, and a file or folder in it.
    QString Client(const QString &path = QString()) const;

    /// The release tree, and a file in it.
    QString Tree(const QString &path = QString()) const;

    /// What publishes the client as Client-2.1.3.zip.
    Request ZipRequest() const;

    /// What publishes an installer, which this makes, as Setup-2.1.3.exe.
    Request InstallerRequest() const;

    /// What verifies the release tree.
    Request VerifyRequest() const;

    /// The package that ZipRequest() makes.
    QString Package() const { return Tree(QStringLiteral("packages/Client-2.1.3.zip")); }

private:
    QTemporaryDir m_room;
};

Outcome Publish(const Request &request);
Outcome Verify(const Vendor &vendor);

/// Every file below @p folder with its content, and every folder, its path ending with a slash.
QMap<QString, QByteArray> Snapshot(const QString &folder);

/// The rules that @p findings name, in their order.
QStringList Rules(const Findings &findings);

/// All their lines, for the message of a failing test.
QString Lines(const Findings &findings);
