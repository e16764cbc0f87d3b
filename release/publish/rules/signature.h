// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"
#include "release/publish/rules/releaserules.h"

#include <QString>
#include <QStringList>
#include <QVector>

/// Which signatures (Authenticode) the programs of a release must have.
struct SignatureDemand {
    bool isRequired = false; ///< otherwise nothing is checked
    QString signer;          ///< the common name in the signer's certificate; empty: anyone's
    QString authorities;     ///< a PEM file of the certificates to trust; empty: the system's
};

/**
 * Checks signatures with osslsigncode, a program that must be on the search path. It may ask the
 * network for lists of revoked certificates that a certificate names. Nothing is written but
 * temporary files. Main thread; each file takes some hundredths of a second, and up to a minute
 * when the network does not answer.
 */
namespace Signature
{

/// True for a program or library of Windows (a PE file), whatever it is called. False for files
/// that cannot be read.
bool IsProgram(const QString &path);

/// Checks one file, which must be signed whatever it is: an installer.
Findings CheckInstaller(const QString &path, const SignatureDemand &demand);

/// Checks each program among @p entries, which lie below @p folder.
Findings CheckFolder(const QString &folder, const QVector<ReleaseRules::Entry> &entries,
                     const SignatureDemand &demand, Progress &progress);

/// Checks each program in the zip package @p path, unpacked to a temporary folder one by one.
Findings CheckZip(const QString &path, const SignatureDemand &demand, Progress &progress);

/**
 * The common names of all who have signed, from what "osslsigncode verify" prints. A name that
 * cannot be told for certain is an empty string. Pure.
 */
QStringList SignersIn(const QString &output);

} // namespace Signature
