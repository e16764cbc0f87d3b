#pragma once

#include "config/global.h"
#include "release/publish/base/findings.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

/// A share of all clients is counted in parts of a thousand, 0.1 % each.
constexpr int AllParts = 1000;

/// One release of a tree, and whom it is offered to.
struct Release {
    QString version;
    QString id; ///< the package's file name
    Global::PackageKind kind = Global::ZipPackage;
    bool forced = false;
    qint64 size = 0; ///< of the package, in bytes
    QString sha256;  ///< of the package, lower-case hexadecimal digits
    QDateTime published;
    QString configFile; ///< the client's version file in a zip package; empty: not named
    QString revision;   ///< of the answer that announces it, see AnswerName(); empty: the first

    int share = 0;        ///< in parts of AllParts; 0: only its networks, if there are any
    QStringList from;     ///< patterns of installed versions; empty: whatever is installed
    QStringList networks; ///< those that are offered it whatever the share
    QString plan;         ///< as ReadPlan() reads it; empty: the share is set by hand
    QDateTime planBegan;  ///< when the plan began or was resumed: figures count from then on
    QDateTime stepBegan;  ///< when the share of now came into force or was resumed
    bool isStopped = false;
    bool isWithdrawn = false;    ///< rolled back; for good
    bool offersPrevious = false; ///< when withdrawn: those that have it are offered the one before

    /// The answer that announces it, below the folder of all answers. An answer never changes while
    /// a list names it; when the release is published with another one, that has another name.
    QString AnswerName() const;

    bool IsRolledOut() const { return share > 0 || !networks.isEmpty(); }
    bool IsOffered() const { return IsRolledOut() && !isStopped && !isWithdrawn; }

    /// Whether it is offered to every client that has an older version.
    bool IsForEverybody() const { return IsOffered() && share == AllParts && from.isEmpty(); }
};

/// What a tree knows about its releases. The order is that of publishing: later ones are newer.
struct ReleaseList {
    QVector<Release> releases;
    QStringList activity; ///< a line for every change, the oldest first

    /// The index of @p version, or -1.
    int IndexOf(const QString &version) const;

    /// The newest release before @p index that everybody is offered, or -1.
    int PreviousForEverybody(int index) const;
};

/// As the file releases.json of a tree holds it.
QByteArray ToJson(const ReleaseList &list);

/// Reads what ToJson() writes.
Failure ReadReleaseList(const QByteArray &json, ReleaseList &list);

/// One step of a plan: a share, and how long it lasts before the next one.
struct PlanStep {
    int share = 0;      ///< in parts of AllParts
    qint64 seconds = 0; ///< 0: for good, which is the last step
};

/**
 * Reads a plan such as "1% 1d, 10% 12h, 50% 90m, 100%": growing shares, each but the last one with
 * its time in weeks, days, hours or minutes. Empty when @p plan is none.
 */
QVector<PlanStep> ReadPlan(const QString &plan);

/// @p steps in the form that trees keep: "1% 1d, 10% 12h, 100%".
QString PlanText(const QVector<PlanStep> &steps);

/// Reads a share in percent, from 0.1 to 100 in steps of 0.1; 0 when @p percent is none.
int ReadShare(const QString &percent);

/// A share for people: "0.5 %".
QString ShareText(int share);

/// Whether @p pattern is a version or, as in "2.0.*", the beginning of some, of three parts at the
/// most; "*" is every version.
bool IsVersionPattern(const QString &pattern);

/// Whether @p version is one of those that @p pattern stands for.
bool MatchesVersion(const QString &pattern, const QString &version);
