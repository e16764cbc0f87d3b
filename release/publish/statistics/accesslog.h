// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <optional>
#include <string>
#include <string_view>

/**
 * A household or office in 64 bits: the first half of an IPv6 address, because the second half
 * changes daily, or an IPv4 address after 32 one bits, which in IPv6 only multicast addresses have.
 */
using Network = quint64;

/// The network of @p address, written as by nginx; empty for any other text.
std::optional<Network> NetworkOf(std::string_view address);

/**
 * Converts an ISO 8601 time such as "2026-11-21T05:31:49+00:00" to seconds since 1970, UTC; empty
 * for any other text.
 */
std::optional<qint64> SecondsSince1970(std::string_view time);

/// One line of the service's access log. For the lifetime of the texts, see
/// AccessLogParser::Parse().
struct AccessLogEntry {
    enum Kind {
        Other,      ///< another path or method; only the time is set
        Check,      ///< POST /check or /PRODUCT/check
        Download,   ///< GET /packages/ID or /PRODUCT/packages/ID
        PackageHead ///< the same with HEAD; only headers are sent
    };

    Kind kind = Other;
    qint64 time = 0;                ///< when the request ended, in seconds since 1970, UTC
    std::optional<Network> network; ///< empty if the log has no address
    int status = 0;           ///< HTTP status; 0 when the connection ended before there was one
    bool completed = false;   ///< the whole answer was sent
    qint64 bytes = 0;         ///< sent, including headers
    std::string_view product; ///< empty when the path has none
    std::string_view package; ///< the offered or downloaded package's ID, or empty
    std::string_view version; ///< installed; empty when unknown
    std::string_view answer;  ///< the version offered, or "none"; empty unless 200
};

/**
 * Parses lines that nginx wrote with the log_format in release/nginx/updates/log.conf: one JSON
 * object per line, keys in any order. Not thread-safe.
 */
class AccessLogParser
{
public:
    /// Parses @p line, without its line break. False when it is truncated or not a line of this
    /// log. The texts in @p entry are valid until @p line changes or the next line is parsed.
    bool Parse(std::string_view line, AccessLogEntry &entry);

    /// The values of the known keys, without quotation marks.
    struct Fields {
        std::string_view time, address, method, path, status, bytes, completed, version, answer,
            package;
    };

private:
    bool ParseWithQt(std::string_view line, Fields &fields);
    AccessLogEntry::Kind ReadPath(std::string_view path, std::string_view method,
                                  AccessLogEntry &entry);
    std::string_view Normalized(std::string_view path);

    std::string m_decoded; ///< the fields of a line with escapes
    std::string m_path;    ///< a path with escapes
};
