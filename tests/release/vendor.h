// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"
#include "release/publish/tree/releaselist.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

/**
 * A vendor with a new client, notes in both languages and a place for the release tree, all in a
 * private folder. Any thread.
 */
class Vendor
{
public:
    Vendor();

    QString Path(const QString &name) const { return m_room.filePath(name); }

    /// The folder of the new client, or a file or folder in it.
    QString Client(const QString &path = QString()) const;

    /// The release tree, or a file in it.
    QString Tree(const QString &path = QString()) const;

    /// A request that publishes the client as Client-2.1.3.zip.
    Request ZipRequest() const;

    /// Creates an installer; returns a request that publishes it as Setup-2.1.3.exe.
    Request InstallerRequest() const;

    /// A request that verifies the release tree.
    Request VerifyRequest() const;

    /// The package of ZipRequest().
    QString Package() const { return Tree(QStringLiteral("packages/Client-2.1.3.zip")); }

    /// The answer that announces the zip package of @p version.
    QString OfferFile(const QString &version = QStringLiteral("2.1.3")) const;

    /// The list of releases in the tree.
    ReleaseList List() const;

private:
    QTemporaryDir m_room;
};

Outcome Publish(const Request &request);
Outcome Verify(const Vendor &vendor);

/// Every file below @p folder with its content, and every folder with a slash at the end.
QMap<QString, QByteArray> Snapshot(const QString &folder);

/// The rules of @p findings, in their order.
QStringList Rules(const Findings &findings);

/// All lines of @p findings, for the message of a failed test.
QString LinesOf(const Findings &findings);
