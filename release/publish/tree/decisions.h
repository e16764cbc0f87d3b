// SPDX-License-Identifier: MIT
#pragma once

#include "release/publish/tree/releaselist.h"

#include <QMap>
#include <QString>
#include <QVector>

/// The order in which a release reaches the thousandths of all networks. It is derived from the
/// version, so that every release reaches other networks first. Each number from 0 to AllParts - 1
/// occurs once.
QVector<int> PartsInOrder(const QString &version);

/// The answers for one class of clients. Releases are indices in the list; -1 means nothing newer.
struct DecisionTable {
    int rest = -1;         ///< the answer for all parts that are not in byPart
    QMap<int, int> byPart; ///< answers for single thousandths of the networks

    bool operator==(const DecisionTable &other) const
    {
        return rest == other.rest && byPart == other.byPart;
    }
};

/**
 * All answers of a tree in the order in which the service looks them up: first the client's
 * network, then the installed version, then the thousandth. Pure functions.
 */
struct Decisions {
    /// Maps a class of versions, such as "is-2.0.7", "below-2.0" or "other", to an index in tables.
    using Place = QMap<QString, int>;

    QVector<DecisionTable> tables; ///< without duplicates
    Place everywhere;
    QVector<Place> places;       ///< for networks, without duplicates
    QMap<QString, int> networks; ///< maps a network's name to an index in places
};

Decisions Decide(const ReleaseList &list);

/**
 * The decisions as folders and symbolic links for release/nginx/updates/service.conf. Maps paths
 * below the folder of a generation to the text of the link, which is empty for a folder. A folder
 * comes before its contents. Every table has a link for the rest, so that the service can tell
 * "nothing newer" from a damaged tree.
 */
QMap<QString, QString> DecisionLinks(const ReleaseList &list);
