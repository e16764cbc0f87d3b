// SPDX-License-Identifier: MIT
// A line of the service's access log. Anybody can put anything into the paths and versions in it.

#include "fuzz/support/require.h"
#include "release/publish/statistics/accesslog.h"

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace
{

QString Text(std::string_view text)
{
    return QString::fromUtf8(text.data(), int(text.size()));
}

/// Everything that must be the same whichever parser reads the line.
QStringList Facts(const AccessLogEntry &entry)
{
    return {QString::number(entry.kind),
            QString::number(entry.time),
            QString::number(entry.network.value_or(0)),
            QString::number(entry.status),
            QString::number(entry.completed ? 1 : 0),
            Text(entry.product),
            Text(entry.package),
            Text(entry.version),
            Text(entry.answer)};
}

void RequireSense(const AccessLogEntry &entry)
{
    Require(entry.time > 0, "a time is after 1970");
    if (entry.kind != AccessLogEntry::Check && entry.kind != AccessLogEntry::Other) {
        Require(!entry.package.empty(), "a download has a package");
        Require(entry.package.find('/') == std::string_view::npos, "an ID has no slash",
                Text(entry.package));
    }
    Require(entry.product.find('/') == std::string_view::npos, "a product has no slash",
            Text(entry.product));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string line(reinterpret_cast<const char *>(data), size);
    AccessLogParser parser;
    AccessLogEntry entry;
    const bool isParsed = parser.Parse(line, entry);
    if (isParsed)
        RequireSense(entry);

    // nginx writes no blank at the end, so this line goes to the complete parser.
    const std::string unusualLine = line + ' ';
    AccessLogParser otherParser;
    AccessLogEntry other;
    if (!otherParser.Parse(unusualLine, other))
        return 0;
    RequireSense(other);
    if (isParsed)
        Require(Facts(entry) == Facts(other), "both parsers agree",
                Facts(entry).join(QLatin1Char('|')) + QLatin1Char('\n') +
                    Facts(other).join(QLatin1Char('|')));
    NetworkOf(line);
    SecondsSince1970(line);
    return 0;
}
