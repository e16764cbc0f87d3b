// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"
#include "release/publish/base/report.h"
#include "release/publish/commandline/commandline.h"
#include "release/publish/packing/clientfolder.h"
#include "release/publish/tree/releaselist.h"
#include "release/publish/tree/reply.h"

/// What a release is made from: a client's folder, an installer, or a release of another tree.
class ReleaseSource
{
public:
    /// @p offer gets what the source decides, and @p outcome what is wrong with the source.
    ReleaseSource(const Request &request, Progress &progress, Offer &offer, Outcome &outcome);

    /// Checks every rule that can be checked without packing. @p treeFolder is the folder of the
    /// tree that will contain the release.
    void Check(const QString &treeFolder);

    /// The installer or the other tree's package, which is copied unchanged; empty when the package
    /// has to be packed.
    QString PackageFile() const { return m_packageFile; }

    /// The client's version file, relative to its folder; empty: none.
    QString ConfigFile() const { return m_configFile; }

    /// The files that are not packed because they match a pattern.
    QStringList LeftOut() const { return m_client.leftOut; }

    /// Whether the other tree lists a package with this digest; always true without another tree.
    bool HasListedDigest(const QString &sha256) const;

    /// Writes the package to @p target.
    Failure MakePackage(const QString &target) const;

private:
    Q_DISABLE_COPY(ReleaseSource)

    void CheckClientFolder(const QString &treeFolder);
    void CheckVersionFile();
    void CheckInstaller();
    void CheckPromotion();
    void Refuse(const Findings &findings);
    void Refuse(const Failure &failure);
    void Refuse(const char *rule, const QString &message);

    const Request &m_request;
    Progress &m_progress;
    Offer &m_offer;
    Outcome &m_outcome;
    Release m_promoted; ///< as the other tree lists it
    QString m_packageFile;
    ClientFolder m_client;
    QString m_configFile;
};
