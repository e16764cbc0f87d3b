// SPDX-License-Identifier: MIT
#include "release/publish/tree/decisions.h"

#include "release/publish/tree/networkprefix.h"

#include <QCryptographicHash>
#include <QPair>
#include <QSet>

#include <algorithm>
#include <numeric>

namespace
{

constexpr int kPartDigits = 3;
const QString kTables = QStringLiteral("tables");
const QString kEverywhere = QStringLiteral("everywhere");
const QString kPlaces = QStringLiteral("places");
const QString kNetworks = QStringLiteral("networks");
const QString kRest = QStringLiteral("rest");
const QString kFromTableToCheck = QStringLiteral("../../../../");

const QString kOther = QStringLiteral("other");
const QString kIs = QStringLiteral("is-");
const QString kBelow = QStringLiteral("below-");
const QString kAnyRest = QStringLiteral(".*");

/// Installed versions that the service looks up under one name.
struct VersionClass {
    QString name;
    int installed = -1;   ///< the release with this version, or -1 when the tree has none
    QVector<bool> isFrom; ///< whether each release may be offered to these versions
};

/// All classes of versions that get different answers, and one for all others.
class VersionClasses
{
public:
    explicit VersionClasses(const ReleaseList &list) : m_list(list)
    {
        Add(kOther, QString());
        for (const Release &release : list.releases) {
            Add(kIs + release.version, release.version);
            for (const QString &pattern : release.from)
                AddPattern(pattern);
        }
    }

    QVector<VersionClass> All() const { return m_classes; }

private:
    void AddPattern(const QString &pattern)
    {
        if (!pattern.endsWith(QLatin1Char('*')))
            Add(kIs + pattern, pattern);
        else if (pattern.endsWith(kAnyRest))
            Add(kBelow + pattern.chopped(kAnyRest.size()), pattern.chopped(1));
    }

    /// @p example is one of the versions, or their common beginning.
    void Add(const QString &name, const QString &example)
    {
        if (m_names.contains(name))
            return;
        m_names.insert(name);
        VersionClass added;
        added.name = name;
        added.installed = m_list.IndexOf(example);
        for (const Release &release : m_list.releases) {
            added.isFrom.append(
                release.from.isEmpty() ||
                std::any_of(release.from.cbegin(), release.from.cend(),
                            [&](const QString &from) { return MatchesVersion(from, example); }));
        }
        m_classes.append(added);
    }

    const ReleaseList &m_list;
    QVector<VersionClass> m_classes;
    QSet<QString> m_names;
};

/// Builds the tables without duplicates.
class Decider
{
public:
    explicit Decider(const ReleaseList &list) : m_list(list), m_classes(VersionClasses(list).All())
    {
        for (const Release &release : list.releases) {
            const int share = release.IsOffered() && release.share < AllParts ? release.share : 0;
            m_draws.append(share == 0 ? QVector<int>()
                                      : PartsInOrder(release.version).mid(0, share));
        }
    }

    Decisions Run()
    {
        m_decisions.everywhere = PlaceOf({});
        QMap<QString, NetworkPrefix> lookups;
        QVector<QVector<NetworkPrefix>> networks;
        for (const Release &release : m_list.releases) {
            networks.append(release.IsOffered() ? Prefixes(release.networks)
                                                : QVector<NetworkPrefix>());
            for (const NetworkPrefix &network : qAsConst(networks.last())) {
                for (const NetworkPrefix &lookup : network.Lookups())
                    lookups.insert(lookup.Name(), lookup);
            }
        }
        for (auto lookup = lookups.cbegin(); lookup != lookups.cend(); ++lookup) {
            QSet<int> here;
            for (int index = 0; index < networks.size(); ++index) {
                for (const NetworkPrefix &network : qAsConst(networks[index])) {
                    if (network.Contains(*lookup))
                        here.insert(index);
                }
            }
            m_decisions.networks.insert(lookup.key(), IndexIn(m_decisions.places, PlaceOf(here)));
        }
        return m_decisions;
    }

private:
    static QVector<NetworkPrefix> Prefixes(const QStringList &texts)
    {
        QVector<NetworkPrefix> prefixes;
        for (const QString &text : texts) {
            NetworkPrefix prefix;
            if (!NetworkPrefix::Read(text, prefix))
                prefixes.append(prefix);
        }
        return prefixes;
    }

    template <class Item> static int IndexIn(QVector<Item> &items, const Item &item)
    {
        int index = items.indexOf(item);
        if (index < 0) {
            index = items.size();
            items.append(item);
        }
        return index;
    }

    /// @p here are the releases that are offered in this network whatever their share.
    Decisions::Place PlaceOf(const QSet<int> &here)
    {
        Decisions::Place place;
        for (const VersionClass &versions : m_classes)
            place.insert(versions.name, IndexIn(m_decisions.tables, TableOf(versions, here)));
        return place;
    }

    DecisionTable TableOf(const VersionClass &versions, const QSet<int> &here) const
    {
        DecisionTable table;
        int index = m_list.releases.size() - 1;
        for (; index > versions.installed; --index) {
            const Release &release = m_list.releases.at(index);
            if (!release.IsOffered() || !versions.isFrom.at(index))
                continue;
            if (release.share == AllParts || here.contains(index))
                break;
            for (const int part : m_draws.at(index)) {
                // A newer release may already have taken it.
                if (!table.byPart.contains(part))
                    table.byPart.insert(part, index);
            }
        }
        table.rest = index > versions.installed ? index : OfferToInstalled(versions.installed);
        return table;
    }

    /// The offer to clients that have the release @p installed when there is nothing newer for
    /// them.
    int OfferToInstalled(int installed) const
    {
        if (installed < 0)
            return -1;
        const Release &release = m_list.releases.at(installed);
        return release.isWithdrawn && release.offersPrevious
                   ? m_list.PreviousForEverybody(installed)
                   : -1;
    }

    const ReleaseList &m_list;
    const QVector<VersionClass> m_classes;
    QVector<QVector<int>> m_draws; ///< the thousandths in the share of each release
    Decisions m_decisions;
};

} // namespace

QVector<int> PartsInOrder(const QString &version)
{
    QVector<QPair<QByteArray, int>> drawn;
    drawn.reserve(AllParts);
    for (int part = 0; part < AllParts; ++part) {
        const QByteArray lot = version.toUtf8() + ' ' + QByteArray::number(part);
        drawn.append({QCryptographicHash::hash(lot, QCryptographicHash::Sha256), part});
    }
    std::sort(drawn.begin(), drawn.end());
    QVector<int> parts;
    parts.reserve(AllParts);
    for (const auto &lot : qAsConst(drawn))
        parts.append(lot.second);
    return parts;
}

Decisions Decide(const ReleaseList &list)
{
    return Decider(list).Run();
}

QMap<QString, QString> DecisionLinks(const ReleaseList &list)
{
    const Decisions decisions = Decide(list);
    QMap<QString, QString> links{{kTables, {}}, {kPlaces, {}}, {kNetworks, {}}};
    const QString inside = QStringLiteral("%1/%2");

    for (int index = 0; index < decisions.tables.size(); ++index) {
        const QString table = inside.arg(kTables).arg(index);
        const auto add = [&](const QString &name, int release) {
            const QString answer =
                release < 0 ? QStringLiteral("none.json")
                            : QStringLiteral("answers/") + list.releases.at(release).AnswerName();
            links.insert(inside.arg(table, name), kFromTableToCheck + answer);
        };
        links.insert(table, QString());
        add(kRest, decisions.tables.at(index).rest);
        const QMap<int, int> &byPart = decisions.tables.at(index).byPart;
        for (auto part = byPart.cbegin(); part != byPart.cend(); ++part) {
            add(QStringLiteral("%1").arg(part.key(), kPartDigits, 10, QLatin1Char('0')),
                part.value());
        }
    }

    const auto addPlace = [&](const QString &path, const QString &toTables,
                              const Decisions::Place &place) {
        links.insert(path, QString());
        for (auto version = place.cbegin(); version != place.cend(); ++version)
            links.insert(inside.arg(path, version.key()),
                         toTables + QString::number(version.value()));
    };
    addPlace(kEverywhere, QStringLiteral("../tables/"), decisions.everywhere);
    for (int index = 0; index < decisions.places.size(); ++index) {
        addPlace(inside.arg(kPlaces).arg(index), QStringLiteral("../../tables/"),
                 decisions.places.at(index));
    }
    for (auto network = decisions.networks.cbegin(); network != decisions.networks.cend();
         ++network) {
        links.insert(inside.arg(kNetworks, network.key()),
                     QStringLiteral("../places/%1").arg(network.value()));
    }
    return links;
}
