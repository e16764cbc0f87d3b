// SPDX-License-Identifier: MIT
#pragma once

#include "config/servicecontract.h"
#include "release/publish/base/findings.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

/// Shares are counted in thousandths of all clients.
constexpr int AllParts = 1000;

/// Converts a share to percent.
constexpr double PercentOf(int share)
{
    return share * 100.0 / AllParts;
}

/// A release in a tree, and who is offered it.
struct Release {
    QString version;
    QString id; ///< the package's file name
    ServiceContract::PackageKind kind = ServiceContract::ZipPackage;
    bool forced = false;
    qint64 size = 0; ///< of the package, in bytes
    QString sha256;  ///< of the package, in lower-case hexadecimal digits
    QDateTime published;
    QString configFile; ///< the client's version file in a zip package; empty: none
    QString revision;   ///< of its answer, see AnswerName(); empty for the first one

    int share = 0;        ///< in thousandths; 0: only the networks are offered it
    QStringList from;     ///< patterns of the installed versions that are offered it; empty: all
    QStringList networks; ///< networks that are offered it whatever the share
    QString plan;         ///< in the form that ReadPlan() reads; empty: the share is set by hand
    QDateTime planBegan;  ///< when the plan began or was resumed; its figures count from then on
    QDateTime stepBegan;  ///< when the current share came into force or was resumed
    bool isStopped = false;
    bool isWithdrawn = false;    ///< rolled back, permanently
    bool offersPrevious = false; ///< clients that have it are offered the previous release

    /// The path of the answer that announces it, below the folder of answers. An answer never
    /// changes while a list refers to it: when the release is published again with a different
    /// answer, the new answer gets a new name.
    QString AnswerName() const;

    bool IsRolledOut() const { return share > 0 || !networks.isEmpty(); }
    bool IsOffered() const { return IsRolledOut() && !isStopped && !isWithdrawn; }

    /// Whether every client with an older version is offered it.
    bool IsForEverybody() const { return IsOffered() && share == AllParts && from.isEmpty(); }
};

/// The releases of a tree in the order in which they were published: later ones are newer.
struct ReleaseList {
    QVector<Release> releases;
    QStringList activity; ///< one line per change, the oldest first

    /// The index of @p version, or -1.
    int IndexOf(const QString &version) const;

    /// The newest release before @p index that every client is offered, or -1.
    int PreviousForEverybody(int index) const;
};

/// The content of releases.json.
QByteArray ToJson(const ReleaseList &list);

/// Reads what ToJson() writes.
Failure ReadReleaseList(const QByteArray &json, ReleaseList &list);

/// One step of a plan: a share and how long it lasts.
struct PlanStep {
    int share = 0;      ///< in thousandths
    qint64 seconds = 0; ///< 0 for the last step, which does not end
};

/**
 * Reads a plan such as "1% 1d, 10% 12h, 50% 90m, 100%": growing shares, each except the last with a
 * time in weeks, days, hours or minutes. Empty when @p plan is not valid.
 */
QVector<PlanStep> ReadPlan(const QString &plan);

/// The normalized text of a plan: "1% 1d, 10% 12h, 100%".
QString PlanText(const QVector<PlanStep> &steps);

/// Reads a percentage from 0.1 to 100 with at most one decimal. Returns thousandths; 0 when
/// @p percent is invalid.
int ReadShare(const QString &percent);

/// A share for people: "0.5 %".
QString ShareText(int share);

/// Whether @p pattern is a version, or at most three parts of one followed by ".*" as in "2.0.*",
/// or "*" for every version.
bool IsVersionPattern(const QString &pattern);

/// Whether @p version matches @p pattern.
bool MatchesVersion(const QString &pattern, const QString &version);
