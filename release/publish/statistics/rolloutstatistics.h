// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/base/findings.h"
#include "release/publish/base/progress.h"

#include <QDate>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

#include <optional>

/// Requests that did not get what they asked for.
struct UnansweredRequests {
    qint64 refused = 0;      ///< 4xx, except 429 and 499
    qint64 tooMany = 0;      ///< 429: above the limit for one network
    qint64 serverErrors = 0; ///< 5xx
    qint64 ended = 0;        ///< 499 or none: the client disconnected before the answer
};

/// The downloads of one release, or of several together.
struct DownloadFigures {
    qint64 downloads = 0;   ///< GET answered with 200
    qint64 interrupted = 0; ///< those of them that were not sent completely
};

/// One package and the release that offers it.
struct ReleaseFigures {
    QString version;         ///< empty when no check in the logs was offered the package
    QString package;         ///< its ID; empty when the log does not name the offered package
    qint64 firstOffered = 0; ///< in seconds since 1970; 0: never

    // Numbers of networks.
    qint64 offered = 0;
    qint64 started = 0;         ///< began a download: GET answered with 200
    qint64 completed = 0;       ///< were sent such a download completely
    qint64 cameBack = 0;        ///< were offered it and later made a check with its version
    qint64 cameBackWithout = 0; ///< completed it and later made checks, but none with its version
    qint64 inRanges = 0;        ///< were sent a range of it, which does not count as a download

    // Numbers of requests.
    qint64 offers = 0; ///< checks that were offered it
    DownloadFigures downloads;
    DownloadFigures before;        ///< of all earlier releases of the product, at any time
    qint64 retries = 0;            ///< GET from a network whose previous download was interrupted
    qint64 ranges = 0;             ///< GET answered with 206
    qint64 unchanged = 0;          ///< GET answered with 304
    qint64 unsatisfiable = 0;      ///< GET answered with 416
    qint64 heads = 0;              ///< HEAD, with any answer
    qint64 bytes = 0;              ///< sent, including headers
    UnansweredRequests unanswered; ///< GET only, without 416
};

/// Checks on one day with the same installed version and the same answer.
struct CheckCount {
    /// An empty text when unknown; no value for versions beyond MaxInstalledVersions.
    std::optional<QString> version;
    QString answer; ///< the offered version or "none"; empty: not answered with 200
    qint64 count = 0;
};

struct DayFigures {
    QDate day;                  ///< UTC
    QVector<CheckCount> checks; ///< sorted by version and answer
    DownloadFigures downloads;
    qint64 bytes = 0; ///< sent for packages
};

struct ProductFigures {
    QString product; ///< empty for addresses without a product
    qint64 checks = 0;
    qint64 answeredChecks = 0; ///< with 200
    qint64 offers = 0;         ///< those of them that were offered a release
    UnansweredRequests unansweredChecks;
    UnansweredRequests unknownPackages;    ///< requests for packages that no other line mentions
    QVector<ReleaseFigures> releases;      ///< in the order of the first offer
    QVector<ReleaseFigures> otherPackages; ///< not offered to any check; sorted by ID
    QVector<DayFigures> days;              ///< sorted; days without requests are missing

    /// The release that offers @p package, or null.
    const ReleaseFigures *ReleaseWith(const QString &package) const;
};

/// The figures from the logs of all nodes.
struct RolloutStatistics {
    int files = 0;
    qint64 lines = 0;
    qint64 damagedLines = 0;         ///< in another format, or truncated
    qint64 otherRequests = 0;        ///< with other paths or methods, or for unknown products
    qint64 earlierLines = 0;         ///< before LogSelection::since
    std::optional<qint64> firstTime; ///< of the counted lines, in seconds since 1970
    std::optional<qint64> lastTime;
    QVector<ProductFigures> products; ///< sorted by name
    Findings warnings;

    /// Null when the logs have no request for @p product.
    const ProductFigures *Product(const QString &product) const;
};

/// A release of the tree whose logs are read.
struct KnownRelease {
    QString version;
    QString package; ///< its ID
};

/// Which lines to count.
struct LogSelection {
    QStringList logs; ///< of any number of nodes, rotated or not, plain or gzip, in any order

    /// Count only lines at or after this time, in seconds since 1970. Earlier lines still decide
    /// which release came first and contribute to ReleaseFigures::before.
    std::optional<qint64> since;

    /**
     * All releases of the tree, the oldest first. With them, ReleaseFigures::before also counts
     * packages that no check in the logs was offered, and ReleaseFigures::cameBackWithout leaves
     * out networks that have a later release. If empty, the order of the first offers decides, and
     * every other version counts as an old one.
     */
    QVector<KnownRelease> releases = {};
};

/// How many installed versions are counted separately, because clients may send anything. Versions
/// of releases are always counted separately.
constexpr int MaxInstalledVersions = 1000;

/**
 * Reads the access logs in @p selection in one pass, in the order of time. Fails when a file cannot
 * be read; every other problem becomes a warning or is counted. Main thread.
 */
Failure ReadLogs(const LogSelection &selection, Progress &progress, RolloutStatistics &statistics);

/// The same, still in one pass, for several times: @p statistics gets one item per time in
/// @p since, which replaces that of @p selection.
Failure ReadLogsSince(const QVector<qint64> &since, const LogSelection &selection,
                      Progress &progress, QVector<RolloutStatistics> &statistics);
