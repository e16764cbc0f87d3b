#pragma once

#include "release/publish/tree/releaselist.h"

#include <QMap>
#include <QString>
#include <QVector>

/// The first parts of all networks that a release is offered to, drawn from its version, so that a
/// release meets others first than the one before. Each part, 0 to AllParts - 1, is in it once.
QVector<int> PartsInOrder(const QString &version);

/// What clients of one kind are answered. Releases are indices in the list; -1 is nothing newer.
struct DecisionTable {
    int rest = -1;         ///< the answer of all parts that are not in byPart
    QMap<int, int> byPart; ///< answers of single parts of the networks

    bool operator==(const DecisionTable &other) const
    {
        return rest == other.rest && byPart == other.byPart;
    }
};

/**
 * All answers of a tree, as the service looks them up: first the network that the client is in,
 * then the installed version, then the part. Pure.
 */
struct Decisions {
    /// By a class of versions, "is-2.0.7", "below-2.0" or "other": an index in tables.
    using Place = QMap<QString, int>;

    QVector<DecisionTable> tables; ///< each one once
    Place everywhere;
    QVector<Place> places;       ///< for networks, each one once
    QMap<QString, int> networks; ///< by the network's name: an index in places
};

Decisions Decide(const ReleaseList &list);

/**
 * The same as folders and symbolic links, for release/nginx/updates/service.conf: paths below the
 * folder of a generation, each with the text of its link, which is empty for a folder. A folder
 * comes before what is in it. Every table has a link for the rest, by which the service tells a
 * sound tree where nothing is newer from a damaged one.
 */
QMap<QString, QString> DecisionLinks(const ReleaseList &list);
