#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"

#include <QDate>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

#include <optional>

/// Requests that were not answered with what they asked for.
struct UnansweredRequests {
    qint64 refused = 0;      ///< 4xx, except 429 and 499
    qint64 tooMany = 0;      ///< 429: more than the limit of one network
    qint64 serverErrors = 0; ///< 5xx
    qint64 ended = 0;        ///< 499 or none: the client was gone before the answer
};

/// How the downloads of one release go, or of several together.
struct DownloadFigures {
    qint64 downloads = 0;   ///< begun: GET answered with 200
    qint64 interrupted = 0; ///< of them, those that were not sent to their end
};

/// One package, and the release that offers it.
struct ReleaseFigures {
    QString version;         ///< empty for a package that no check in the logs was offered
    QString package;         ///< its ID; empty where the log does not tell which was offered
    qint64 firstOffered = 0; ///< in seconds since 1970; 0 when never

    // Networks.
    qint64 offered = 0;
    qint64 started = 0;         ///< a download, with GET and answered with 200
    qint64 completed = 0;       ///< such a download, sent to its end
    qint64 cameBack = 0;        ///< were offered it, and made a check with its version later
    qint64 cameBackWithout = 0; ///< completed it, and made checks later, but none with its version
    qint64 inRanges = 0;        ///< were sent a part of it, which is none of the downloads

    // Requests.
    qint64 offers = 0; ///< checks that were answered with it
    DownloadFigures downloads;
    DownloadFigures before;        ///< of all earlier releases of the product, whenever
    qint64 retries = 0;            ///< GET of a network whose previous download was interrupted
    qint64 ranges = 0;             ///< GET answered with 206
    qint64 unchanged = 0;          ///< GET answered with 304
    qint64 unsatisfiable = 0;      ///< GET answered with 416
    qint64 heads = 0;              ///< HEAD, whatever the answer
    qint64 bytes = 0;              ///< sent, with the heads of the answers
    UnansweredRequests unanswered; ///< GET only, without 416
};

/// Checks of one day with the same installed version and the same answer.
struct CheckCount {
    /// Empty when unknown; nothing for what is beyond the versions that are told apart.
    std::optional<QString> version;
    QString answer; ///< the version offered, "none", or empty: not answered with 200
    qint64 count = 0;
};

struct DayFigures {
    QDate day;                  ///< UTC
    QVector<CheckCount> checks; ///< in the order of version and answer
    DownloadFigures downloads;
    qint64 bytes = 0; ///< sent for packages
};

struct ProductFigures {
    QString product; ///< empty for the addresses without a product
    qint64 checks = 0;
    qint64 answeredChecks = 0; ///< with 200
    qint64 offers = 0;         ///< of them, those answered with a release
    UnansweredRequests unansweredChecks;
    UnansweredRequests unknownPackages;    ///< requests for packages that no other line tells of
    QVector<ReleaseFigures> releases;      ///< in the order of the first offer
    QVector<ReleaseFigures> otherPackages; ///< that no check was offered, by ID
    QVector<DayFigures> days;              ///< in their order; days without requests are missing

    /// The release that offers @p package, or nothing.
    const ReleaseFigures *ReleaseWith(const QString &package) const;
};

/// What the logs of all nodes tell about releases.
struct RolloutStatistics {
    int files = 0;
    qint64 lines = 0;
    qint64 damagedLines = 0;         ///< not of the log's form, or halves of lines
    qint64 otherRequests = 0;        ///< other paths and methods, and products that are unknown
    qint64 earlierLines = 0;         ///< before the time from which to count
    std::optional<qint64> firstTime; ///< of a line that counts, in seconds since 1970
    std::optional<qint64> lastTime;
    QVector<ProductFigures> products; ///< by name
    Findings warnings;

    /// Nothing when the logs have no request for @p product.
    const ProductFigures *Product(const QString &product) const;
};

/// A release of the tree that the logs are about.
struct KnownRelease {
    QString version;
    QString package; ///< its ID
};

/// Which lines to count.
struct LogSelection {
    QStringList logs; ///< of any number of nodes, rotated or not, plain or gzip, in any order

    /// Only lines at or after this time count, in seconds since 1970. Earlier ones still tell which
    /// release came first, and ReleaseFigures::before comes from them as well.
    std::optional<qint64> since;

    /**
     * All releases of the tree, the oldest first. They decide which downloads
     * ReleaseFigures::before counts, even those of packages that no check in the logs was offered,
     * and ReleaseFigures::cameBackWithout leaves out networks that have a later release. Empty: the
     * order of the first offers decides, and every other version counts as the old one.
     */
    QVector<KnownRelease> releases = {};
};

/// How many installed versions are told apart, since clients may send anything. Versions of
/// releases always are.
constexpr int MaxInstalledVersions = 1000;

/**
 * Reads the access logs that @p selection names into @p statistics: in one pass, in the order of
 * time. Refuses files that cannot be read; everything else becomes a warning or a count. Main
 * thread.
 */
Failure ReadLogs(const LogSelection &selection, Progress &progress, RolloutStatistics &statistics);

/// The same in one pass for each time of @p since, in place of @p selection's own; @p statistics
/// are in its order.
Failure ReadLogsSince(const QVector<qint64> &since, const LogSelection &selection,
                      Progress &progress, QVector<RolloutStatistics> &statistics);
