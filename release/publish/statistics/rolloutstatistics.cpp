// SPDX-License-Identifier: MIT
#include "release/publish/statistics/rolloutstatistics.h"

#include "release/publish/statistics/accesslog.h"
#include "release/publish/statistics/logmerge.h"
#include "release/publish/statistics/networktable.h"

#include <QHash>

#include <algorithm>
#include <limits>
#include <map>
#include <numeric>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace
{

using Text = std::string_view;

constexpr Text kNoOffer = "none";

constexpr size_t kMaxPackages = std::numeric_limits<quint16>::max();

constexpr qint64 kSecondsOfDay = 24LL * 60 * 60;
constexpr qint64 kJulianDayOf1970 = 2440588; // as QDate counts

enum HttpStatus {
    kOk = 200,
    kPartialContent = 206,
    kNotModified = 304,
    kFirstClientError = 400,
    kRangeNotSatisfiable = 416,
    kTooManyRequests = 429,
    kClientClosed = 499, // used by nginx only
    kFirstServerError = 500,
    kNotImplemented = 501,
    kVersionNotSupported = 505
};

/// What a network has done with a package.
enum Mark : quint8 {
    kOffered = 1,
    kStarted = 2,
    kCompleted = 4,
    kCameBack = 8,
    kHasVersion = 16,   ///< or a later one, even if these logs contain no offer
    kCheckedLater = 32, ///< after the download, with another version
    kInterrupted = 64,  ///< the last download
    kInRanges = 128
};

QString ToQString(Text text)
{
    return QString::fromUtf8(text.data(), int(text.size()));
}

/// Assigns small numbers to texts.
class Names
{
public:
    /// The number of all installed versions beyond the limit.
    static constexpr int kOthers = -1;

    int Number(Text text) { return NumberUpTo(std::numeric_limits<int>::max(), text); }

    /// Returns kOthers for a new text when there are already @p limit texts.
    int NumberUpTo(int limit, Text text)
    {
        const auto known = m_numbers.find(text);
        if (known != m_numbers.end())
            return known->second;
        if (Count() >= limit)
            return kOthers;
        m_numbers.emplace(text, Count());
        m_texts.emplace_back(text);
        return Count() - 1;
    }

    int Count() const { return int(m_texts.size()); }
    const std::string &At(int number) const { return m_texts[size_t(number)]; }

private:
    std::map<std::string, int, std::less<>> m_numbers;
    std::vector<std::string> m_texts;
};

struct Package {
    ReleaseFigures figures;
    int version = Names::kOthers; ///< its number, as soon as a check was offered it
    int product = 0;
    bool hasRequests = false;     ///< since LogSelection::since
    DownloadFigures allDownloads; ///< at any time
};

struct Day {
    QHash<quint64, qint64> checks; ///< the key combines the numbers of version and answer
    DownloadFigures downloads;
    qint64 bytes = 0;
};

struct Product {
    ProductFigures figures;
    std::map<std::string, int, std::less<>> packages; ///< the key is the ID, or "/" and the version
    std::map<qint64, Day> days;
};

/**
 * Whether an address that nginx answers with @p status exists. Anyone can request others, and they
 * must not fill the report. nginx refuses them with 4xx, and requests that it does not understand
 * with 501 or 505 before it looks at the address.
 */
bool IsKnown(int status)
{
    if (status < kOk || status == kNotImplemented || status == kVersionNotSupported)
        return false;
    return status < kFirstClientError || status == kTooManyRequests || status >= kFirstServerError;
}

/// Whether a package that is answered with @p status exists.
bool Exists(int status)
{
    return (status >= kOk && status < kFirstClientError) || status == kRangeNotSatisfiable;
}

void AddUnanswered(int status, UnansweredRequests &requests)
{
    if (status == kTooManyRequests)
        ++requests.tooMany;
    else if (status >= kFirstServerError)
        ++requests.serverErrors;
    else if (status == kClientClosed || status < kOk)
        ++requests.ended;
    else if (status >= kFirstClientError)
        ++requests.refused;
}

void AddDownload(const AccessLogEntry &download, DownloadFigures &figures)
{
    ++figures.downloads;
    figures.interrupted += download.completed ? 0 : 1;
}

quint64 KeyOf(int version, int answer)
{
    return quint64(quint32(version)) << 32 | quint32(answer);
}

/// Counts entries in the order of time.
class Counter
{
public:
    explicit Counter(const LogSelection &selection);

    void Take(const AccessLogEntry &entry);

    /// Call it once, after the last entry.
    void Finish(RolloutStatistics &statistics);

private:
    void CountCheck(const AccessLogEntry &check, Product &product);
    void CountReturn(const AccessLogEntry &check, int version);
    void CountDownload(const AccessLogEntry &download, Product &product);
    void CountHead(const AccessLogEntry &head, Product &product);
    void CountEarlier(const AccessLogEntry &entry);
    void MarkDownload(const AccessLogEntry &download, int package);

    bool IsLater(int version, int than) const
    {
        return version > than && version < m_knownVersions;
    }
    bool FindProduct(const AccessLogEntry &entry);
    int FindPackage(Product &product, Text key) const;
    int FindOrAddPackage(Product &product, Text key);
    int PackageOf(const AccessLogEntry &request, Product &product);
    int OfferedPackage(const AccessLogEntry &check, Product &product);
    Day &DayOf(const AccessLogEntry &entry, Product &product) const;

    void SumUpNetworks();
    void FinishPackages();
    void FinishDays(Product &product) const;

    std::optional<qint64> m_since;
    RolloutStatistics m_totals;
    QHash<QString, int> m_ranks; ///< position of each known package in the order of releases
    int m_knownVersions = 0;     ///< lower numbers are known releases, in their order
    Names m_versions;            ///< installed and offered versions
    std::map<std::string, int, std::less<>> m_productNumbers;
    std::vector<Product> m_products;
    int m_product = 0; ///< of the current entry
    std::vector<Package> m_packages;
    NetworkTable m_networks;
};

Counter::Counter(const LogSelection &selection) : m_since(selection.since)
{
    for (const KnownRelease &release : selection.releases) {
        m_ranks.insert(release.package, m_ranks.size());
        m_versions.Number(release.version.toStdString());
    }
    m_knownVersions = m_versions.Count();
}

void Counter::Take(const AccessLogEntry &entry)
{
    if (m_since && entry.time < *m_since) {
        ++m_totals.earlierLines;
        CountEarlier(entry);
        return;
    }
    m_totals.firstTime = std::min(m_totals.firstTime.value_or(entry.time), entry.time);
    m_totals.lastTime = std::max(m_totals.lastTime.value_or(entry.time), entry.time);
    if (entry.kind == AccessLogEntry::Other || !FindProduct(entry)) {
        ++m_totals.otherRequests;
        return;
    }
    Product &product = m_products[size_t(m_product)];
    if (entry.kind == AccessLogEntry::Check)
        CountCheck(entry, product);
    else if (entry.kind == AccessLogEntry::Download)
        CountDownload(entry, product);
    else
        CountHead(entry, product);
}

/// Counts only what later releases are compared with.
void Counter::CountEarlier(const AccessLogEntry &entry)
{
    if (entry.status != kOk || !FindProduct(entry))
        return;
    Product &product = m_products[size_t(m_product)];
    if (entry.kind == AccessLogEntry::Check) {
        OfferedPackage(entry, product);
    } else if (entry.kind == AccessLogEntry::Download) {
        const int package = FindOrAddPackage(product, entry.package);
        if (package >= 0)
            AddDownload(entry, m_packages[size_t(package)].allDownloads);
    }
}

void Counter::CountCheck(const AccessLogEntry &check, Product &product)
{
    const bool isAnswered = check.status == kOk;
    const int version = m_versions.NumberUpTo(MaxInstalledVersions, check.version);
    const int answer = m_versions.Number(isAnswered ? check.answer : Text());
    ++product.figures.checks;
    product.figures.answeredChecks += isAnswered ? 1 : 0;
    ++DayOf(check, product).checks[KeyOf(version, answer)];
    AddUnanswered(check.status, product.figures.unansweredChecks);

    // nginx does not read the body of a check that it turns away, so an empty version says nothing
    // about the client.
    if (isAnswered || !check.version.empty())
        CountReturn(check, version);
    if (!isAnswered)
        return;
    const int offered = OfferedPackage(check, product);
    if (offered < 0)
        return;
    Package &package = m_packages[size_t(offered)];
    ++product.figures.offers;
    ++package.figures.offers;
    package.hasRequests = true;
    if (check.network)
        m_networks.At(*check.network, quint16(offered)).marks |= kOffered;
}

/// A network that was offered or has downloaded a release checks again.
void Counter::CountReturn(const AccessLogEntry &check, int version)
{
    if (!check.network)
        return;
    for (NetworkTable::Record *record = m_networks.First(*check.network); record;
         record = m_networks.Next(*record)) {
        const Package &package = m_packages[record->package];
        if (package.product != m_product)
            continue;
        const bool hasIt = package.version == version && version != Names::kOthers;
        if (hasIt)
            record->marks |=
                quint8(kHasVersion | ((record->marks & kOffered) != 0 ? kCameBack : 0));
        else if (package.version != Names::kOthers && IsLater(version, package.version))
            record->marks |= kHasVersion;
        else if ((record->marks & kCompleted) != 0)
            record->marks |= kCheckedLater;
    }
}

void Counter::CountDownload(const AccessLogEntry &download, Product &product)
{
    Day &day = DayOf(download, product);
    day.bytes += download.bytes;
    const int number = PackageOf(download, product);
    if (number < 0) {
        AddUnanswered(download.status, product.figures.unknownPackages);
        return;
    }

    Package &package = m_packages[size_t(number)];
    package.hasRequests = true;
    package.figures.bytes += download.bytes;
    switch (download.status) {
    case kOk:
        AddDownload(download, package.figures.downloads);
        AddDownload(download, package.allDownloads);
        AddDownload(download, day.downloads);
        break;
    case kPartialContent:
        ++package.figures.ranges;
        break;
    case kNotModified:
        ++package.figures.unchanged;
        break;
    case kRangeNotSatisfiable:
        ++package.figures.unsatisfiable;
        break;
    default:
        AddUnanswered(download.status, package.figures.unanswered);
    }
    if (download.network && (download.status == kOk || download.status == kPartialContent))
        MarkDownload(download, number);
}

void Counter::MarkDownload(const AccessLogEntry &download, int package)
{
    quint8 &marks = m_networks.At(*download.network, quint16(package)).marks;
    if ((marks & kInterrupted) != 0)
        ++m_packages[size_t(package)].figures.retries;
    marks &= quint8(~kInterrupted);
    if (download.status == kPartialContent)
        marks |= kInRanges;
    else
        marks |= quint8(kStarted | (download.completed ? kCompleted : kInterrupted));
}

void Counter::CountHead(const AccessLogEntry &head, Product &product)
{
    const int number = PackageOf(head, product);
    if (number < 0) {
        AddUnanswered(head.status, product.figures.unknownPackages);
        return;
    }
    m_packages[size_t(number)].hasRequests = true;
    ++m_packages[size_t(number)].figures.heads;
}

/// Sets m_product. False when the product does not exist.
bool Counter::FindProduct(const AccessLogEntry &entry)
{
    const auto known = m_productNumbers.find(entry.product);
    if (known != m_productNumbers.end()) {
        m_product = known->second;
        return true;
    }
    if (!IsKnown(entry.status))
        return false;
    m_product = int(m_products.size());
    m_productNumbers.emplace(entry.product, m_product);
    m_products.emplace_back();
    m_products.back().figures.product = ToQString(entry.product);
    return true;
}

/// Returns -1 when there is none.
int Counter::FindPackage(Product &product, Text key) const
{
    const auto known = product.packages.find(key);
    return known == product.packages.end() ? -1 : known->second;
}

/// Returns -1 when there are too many.
int Counter::FindOrAddPackage(Product &product, Text key)
{
    const int known = FindPackage(product, key);
    if (known >= 0 || m_packages.size() >= kMaxPackages)
        return known;
    product.packages.emplace(key, int(m_packages.size()));
    Package package;
    package.product = m_product;
    if (key.front() != '/')
        package.figures.package = ToQString(key);
    m_packages.push_back(package);
    return int(m_packages.size()) - 1;
}

/// Returns -1 when the requested package is not known to exist.
int Counter::PackageOf(const AccessLogEntry &request, Product &product)
{
    return Exists(request.status) ? FindOrAddPackage(product, request.package)
                                  : FindPackage(product, request.package);
}

/// Returns -1 when @p check was not offered a release.
int Counter::OfferedPackage(const AccessLogEntry &check, Product &product)
{
    if (check.answer.empty() || check.answer == kNoOffer)
        return -1;
    // IDs contain no slash.
    const int number = check.package.empty()
                           ? FindOrAddPackage(product, "/" + std::string(check.answer))
                           : FindOrAddPackage(product, check.package);
    if (number < 0)
        return -1;
    Package &package = m_packages[size_t(number)];
    if (package.version == Names::kOthers) {
        package.version = m_versions.Number(check.answer);
        package.figures.version = ToQString(check.answer);
        package.figures.firstOffered = check.time;
    }
    return number;
}

Day &Counter::DayOf(const AccessLogEntry &entry, Product &product) const
{
    const qint64 day = entry.time / kSecondsOfDay;
    const auto last = product.days.empty() ? product.days.end() : std::prev(product.days.end());
    return last != product.days.end() && last->first == day ? last->second : product.days[day];
}

void Counter::Finish(RolloutStatistics &statistics)
{
    SumUpNetworks();
    FinishPackages();
    for (const auto &[name, number] : m_productNumbers) {
        Product &product = m_products[size_t(number)];
        FinishDays(product);
        m_totals.products.append(product.figures);
    }
    statistics = m_totals;
}

void Counter::SumUpNetworks()
{
    for (const NetworkTable::Record &record : m_networks.Records()) {
        const auto isMarked = [&record](Mark mark) { return (record.marks & mark) != 0; };
        ReleaseFigures &figures = m_packages[record.package].figures;
        figures.offered += isMarked(kOffered) ? 1 : 0;
        figures.started += isMarked(kStarted) ? 1 : 0;
        figures.completed += isMarked(kCompleted) ? 1 : 0;
        figures.cameBack += isMarked(kCameBack) ? 1 : 0;
        figures.inRanges += isMarked(kInRanges) ? 1 : 0;
        if (isMarked(kCheckedLater) && !isMarked(kHasVersion))
            ++figures.cameBackWithout;
    }
}

void Counter::FinishPackages()
{
    const auto place = [this](const Package &package) -> qint64 {
        return m_ranks.isEmpty() ? package.figures.firstOffered
                                 : m_ranks.value(package.figures.package, -1);
    };
    std::vector<int> order(m_packages.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [this, place](int one, int other) {
        return place(m_packages[size_t(one)]) < place(m_packages[size_t(other)]);
    });

    std::vector<DownloadFigures> before(m_products.size());
    for (const int number : order) {
        Package &package = m_packages[size_t(number)];
        const auto product = size_t(package.product);
        const bool isOffered = package.version != Names::kOthers;
        const bool isRelease = m_ranks.isEmpty() ? isOffered : place(package) >= 0;
        if (isRelease) {
            package.figures.before = before[product];
            before[product].downloads += package.allDownloads.downloads;
            before[product].interrupted += package.allDownloads.interrupted;
        }
        if (!package.hasRequests)
            continue;
        ProductFigures &figures = m_products[product].figures;
        (isOffered ? figures.releases : figures.otherPackages).append(package.figures);
    }
    for (Product &product : m_products) {
        QVector<ReleaseFigures> &others = product.figures.otherPackages;
        std::sort(others.begin(), others.end(),
                  [](const ReleaseFigures &one, const ReleaseFigures &other) {
                      return one.package < other.package;
                  });
    }
}

void Counter::FinishDays(Product &product) const
{
    for (auto [number, counted] : product.days) {
        DayFigures day;
        day.day = QDate::fromJulianDay(number + kJulianDayOf1970);
        day.downloads = counted.downloads;
        day.bytes = counted.bytes;
        for (auto check = counted.checks.constBegin(); check != counted.checks.constEnd();
             ++check) {
            CheckCount count;
            const auto version = int(check.key() >> 32);
            if (version != Names::kOthers)
                count.version = ToQString(m_versions.At(version));
            count.answer = ToQString(m_versions.At(int(check.key() & 0xffffffff)));
            count.count = check.value();
            day.checks.append(count);
        }
        std::sort(day.checks.begin(), day.checks.end(),
                  [](const CheckCount &one, const CheckCount &other) {
                      return std::tie(one.version, one.answer) <
                             std::tie(other.version, other.answer);
                  });
        product.figures.days.append(day);
    }
}

/// Passes every entry of @p logs to all @p counters.
Failure Count(const QStringList &logs, Progress &progress, std::vector<Counter> &counters,
              QVector<RolloutStatistics> &statistics)
{
    LogMerge merge(logs, progress);
    if (Failure failure = merge.Begin())
        return failure;
    while (merge.Next()) {
        for (Counter &counter : counters)
            counter.Take(merge.Entry());
    }
    progress.End();
    if (merge.Error())
        return merge.Error();

    for (Counter &counter : counters) {
        RolloutStatistics counted;
        counter.Finish(counted);
        counted.files = merge.Files();
        counted.lines = merge.Lines();
        counted.damagedLines = merge.DamagedLines();
        counted.warnings = merge.Warnings();
        statistics.append(counted);
    }
    return {};
}

} // namespace

const ReleaseFigures *ProductFigures::ReleaseWith(const QString &package) const
{
    const auto found =
        std::find_if(releases.cbegin(), releases.cend(), [&package](const ReleaseFigures &release) {
            return release.package == package;
        });
    return found == releases.cend() ? nullptr : &*found;
}

const ProductFigures *RolloutStatistics::Product(const QString &product) const
{
    const auto found =
        std::find_if(products.cbegin(), products.cend(), [&product](const ProductFigures &figures) {
            return figures.product == product;
        });
    return found == products.cend() ? nullptr : &*found;
}

Failure ReadLogs(const LogSelection &selection, Progress &progress, RolloutStatistics &statistics)
{
    std::vector<Counter> counters;
    counters.emplace_back(selection);
    QVector<RolloutStatistics> read;
    if (Failure failure = Count(selection.logs, progress, counters, read))
        return failure;
    statistics = read.constFirst();
    return {};
}

Failure ReadLogsSince(const QVector<qint64> &since, const LogSelection &selection,
                      Progress &progress, QVector<RolloutStatistics> &statistics)
{
    std::vector<Counter> counters;
    for (const qint64 time : since)
        counters.emplace_back(LogSelection{{}, time, selection.releases});
    return Count(selection.logs, progress, counters, statistics);
}
