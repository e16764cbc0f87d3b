#pragma once

#include <QtGlobal>

#include <optional>
#include <string>
#include <string_view>

/**
 * One household or office in 64 bits: the first half of an IPv6 address, whose second half changes
 * daily, or an IPv4 address behind 32 set bits, where IPv6 has only multicast groups.
 */
using Network = quint64;

/// The network of @p address as nginx writes it; nothing for any other text.
std::optional<Network> NetworkOf(std::string_view address);

/**
 * Seconds since 1970, UTC, of an ISO 8601 time such as "2026-11-21T05:31:49+00:00"; nothing for any
 * other text.
 */
std::optional<qint64> SecondsSince1970(std::string_view time);

/// What one line of the service's access log tells. The texts are valid as long as its parser says.
struct AccessLogEntry {
    enum Kind {
        Other,      ///< another path or method; only the time is known
        Check,      ///< POST /check or /PRODUCT/check
        Download,   ///< GET /packages/ID or /PRODUCT/packages/ID
        PackageHead ///< the same with HEAD: nothing is sent but the head of the answer
    };

    Kind kind = Other;
    qint64 time = 0;                ///< of the end of the request, in seconds since 1970, UTC
    std::optional<Network> network; ///< nothing where the log has no address
    int status = 0;                 ///< of HTTP; 0 when the connection ended before there was one
    bool completed = false;         ///< the whole answer was sent
    qint64 bytes = 0;               ///< sent, with the head of the answer
    std::string_view product;       ///< empty when the address names none
    std::string_view package;       ///< the ID of the package offered or downloaded, or empty
    std::string_view version;       ///< installed; empty when unknown
    std::string_view answer;        ///< the version offered, or "none"; empty unless 200
};

/**
 * Reads lines that nginx wrote with the log_format in release/nginx/updates/log.conf: one JSON
 * object a line, its keys in any order. Not to be shared between threads.
 */
class AccessLogParser
{
public:
    /// Reads @p line, which is without its line break. False when it is not a line of this log, or
    /// half of one. The texts in @p entry are valid until the line changes or the next is parsed.
    bool Parse(std::string_view line, AccessLogEntry &entry);

    /// The values of the keys, without quotation marks. Unknown keys are ignored.
    struct Fields {
        std::string_view time, address, method, path, status, bytes, completed, version, answer,
            package;
    };

private:
    bool ParseWithQt(std::string_view line, Fields &fields);
    AccessLogEntry::Kind ReadPath(std::string_view path, std::string_view method,
                                  AccessLogEntry &entry);
    std::string_view Normalized(std::string_view path);

    std::string m_decoded; ///< the fields of a line that has escapes
    std::string m_path;    ///< a path that has escapes
};
