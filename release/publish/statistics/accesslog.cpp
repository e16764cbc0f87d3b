// SPDX-License-Identifier: MIT
#include "release/publish/statistics/accesslog.h"

#include <QByteArray>
#include <QDate>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <array>
#include <charconv>

namespace
{

using Fields = AccessLogParser::Fields;
using Text = std::string_view;

constexpr Text kPackagesSegment = "packages";
constexpr Text kCheckSegment = "check";
constexpr Text kCompleted = "OK"; // the value of nginx's $request_completion

constexpr int kHexadecimal = 16;

constexpr size_t kAddressGroups = 8; // of 16 bits each
constexpr size_t kNetworkGroups = 4;
constexpr Network kIpv4Tag = 0xffffffff00000000;
constexpr Text kMappedIpv4Prefix = "::ffff:";

constexpr qint64 kSecondsOfMinute = 60;
constexpr qint64 kSecondsOfHour = 60 * kSecondsOfMinute;
constexpr qint64 kSecondsOfDay = 24 * kSecondsOfHour;
constexpr qint64 kJulianDayOf1970 = 2440588; // as QDate counts

template <typename Number> bool ReadNumber(Text text, Number &number, int base = 10)
{
    const char *const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number, base);
    return read.ec == std::errc() && read.ptr == end;
}

bool ReadDigits(Text text, size_t at, size_t count, int &number)
{
    number = 0;
    for (const char digit : text.substr(at, count)) {
        if (digit < '0' || digit > '9')
            return false;
        number = number * 10 + (digit - '0');
    }
    return true;
}

std::optional<Network> Ipv4Network(Text address)
{
    Network network = 0;
    for (int part = 0; part < 4; ++part) {
        const size_t end = part < 3 ? address.find('.') : address.size();
        quint8 byte = 0;
        if (end == Text::npos || !ReadNumber(address.substr(0, end), byte))
            return {};
        network = network << 8 | byte;
        address.remove_prefix(part < 3 ? end + 1 : end);
    }
    return kIpv4Tag | network;
}

struct Groups {
    std::array<quint16, kAddressGroups> values{};
    size_t count = 0;
};

bool ReadGroups(Text text, Groups &groups)
{
    while (!text.empty()) {
        const size_t end = std::min(text.find(':'), text.size());
        if (groups.count == kAddressGroups ||
            !ReadNumber(text.substr(0, end), groups.values.at(groups.count), kHexadecimal))
            return false;
        ++groups.count;
        const bool endsWithColon = end + 1 == text.size();
        if (endsWithColon)
            return false;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return true;
}

std::optional<Network> Ipv6Network(Text address)
{
    constexpr Text kZeros = "::";
    const size_t zeros = address.find(kZeros);
    const bool hasZeros = zeros != Text::npos;
    Groups front;
    Groups back;
    if (!ReadGroups(address.substr(0, zeros), front) ||
        (hasZeros && !ReadGroups(address.substr(zeros + kZeros.size()), back)))
        return {};
    const size_t written = front.count + back.count;
    if (hasZeros ? written >= kAddressGroups : written != kAddressGroups)
        return {};

    for (size_t group = 0; group < back.count; ++group)
        front.values.at(kAddressGroups - back.count + group) = back.values.at(group);
    Network network = 0;
    for (size_t group = 0; group < kNetworkGroups; ++group)
        network = network << 16 | front.values.at(group);
    return network;
}

Text *FieldCalled(Text key, Fields &fields)
{
    struct Name {
        Text key;
        Text Fields::*field;
    };
    static constexpr std::array<Name, 10> kNames{{
        {"time", &Fields::time},
        {"address", &Fields::address},
        {"method", &Fields::method},
        {"path", &Fields::path},
        {"status", &Fields::status},
        {"bytes", &Fields::bytes},
        {"completed", &Fields::completed},
        {"version", &Fields::version},
        {"answer", &Fields::answer},
        {"package", &Fields::package},
    }};
    for (const Name &name : kNames) {
        if (name.key == key)
            return &(fields.*name.field);
    }
    return nullptr;
}

/**
 * A fast parser for lines as nginx usually writes them: flat, without spaces and escapes. Rejects
 * everything else, which is then left to the complete parser.
 */
class FlatObject
{
public:
    explicit FlatObject(Text line) : m_rest(line) {}

    bool Read(Fields &fields)
    {
        if (!Take('{'))
            return false;
        do {
            Text key;
            Text value;
            if (!TakeString(key) || !Take(':') || !TakeValue(value))
                return false;
            Text *const field = FieldCalled(key, fields);
            const bool isRepeated = field && field->data();
            if (isRepeated)
                return false;
            if (field)
                *field = value;
        } while (Take(','));
        return Take('}') && m_rest.empty();
    }

private:
    bool Take(char character)
    {
        if (m_rest.empty() || m_rest.front() != character)
            return false;
        m_rest.remove_prefix(1);
        return true;
    }

    bool TakeString(Text &text)
    {
        if (!Take('"'))
            return false;
        const size_t end = m_rest.find('"');
        if (end == Text::npos)
            return false;
        text = m_rest.substr(0, end);
        m_rest.remove_prefix(end + 1);
        return text.find('\\') == Text::npos;
    }

    bool TakeValue(Text &text)
    {
        if (!m_rest.empty() && m_rest.front() == '"')
            return TakeString(text);
        const size_t end = std::min(m_rest.find_first_not_of("0123456789."), m_rest.size());
        text = m_rest.substr(0, end);
        m_rest.remove_prefix(end);
        return end > 0;
    }

    Text m_rest;
};

/// Decodes the two digits after a "%"; empty when they are not hexadecimal.
std::optional<char> Unescaped(Text digits)
{
    quint8 byte = 0;
    if (digits.size() != 2 || !ReadNumber(digits, byte, kHexadecimal))
        return {};
    return char(byte);
}

/// Removes the first segment and the slash before it from @p path, and returns the segment.
Text TakeSegment(Text &path)
{
    if (path.empty() || path.front() != '/')
        return {};
    path.remove_prefix(1);
    const Text segment = path.substr(0, path.find('/'));
    path.remove_prefix(segment.size());
    return segment;
}

} // namespace

std::optional<Network> NetworkOf(Text address)
{
    if (address.substr(0, kMappedIpv4Prefix.size()) == kMappedIpv4Prefix &&
        address.find('.') != Text::npos)
        address.remove_prefix(kMappedIpv4Prefix.size());
    return address.find(':') == Text::npos ? Ipv4Network(address) : Ipv6Network(address);
}

std::optional<qint64> SecondsSince1970(Text time)
{
    constexpr Text kForm = "0000-00-00T00:00:00";
    constexpr Text kOffsetForm = "+00:00";
    const Text offset = time.substr(std::min(kForm.size(), time.size()));
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (time.size() < kForm.size() || time[4] != '-' || time[7] != '-' || time[10] != 'T' ||
        time[13] != ':' || time[16] != ':' || !ReadDigits(time, 0, 4, year) ||
        !ReadDigits(time, 5, 2, month) || !ReadDigits(time, 8, 2, day) ||
        !ReadDigits(time, 11, 2, hour) || !ReadDigits(time, 14, 2, minute) ||
        !ReadDigits(time, 17, 2, second))
        return {};
    const QDate date(year, month, day);
    if (!date.isValid() || date.toJulianDay() <= kJulianDayOf1970)
        return {};
    const qint64 days = date.toJulianDay() - kJulianDayOf1970;
    const qint64 local =
        days * kSecondsOfDay + hour * kSecondsOfHour + minute * kSecondsOfMinute + second;
    if (offset == "Z")
        return local;

    int offsetHours = 0;
    int offsetMinutes = 0;
    if (offset.size() != kOffsetForm.size() || (offset[0] != '+' && offset[0] != '-') ||
        offset[3] != ':' || !ReadDigits(offset, 1, 2, offsetHours) ||
        !ReadDigits(offset, 4, 2, offsetMinutes))
        return {};
    const qint64 east = offsetHours * kSecondsOfHour + offsetMinutes * kSecondsOfMinute;
    return offset[0] == '+' ? local - east : local + east;
}

bool AccessLogParser::Parse(Text line, AccessLogEntry &entry)
{
    Fields fields;
    if (!FlatObject(line).Read(fields)) {
        fields = Fields();
        if (!ParseWithQt(line, fields))
            return false;
    }
    const std::optional<qint64> time = SecondsSince1970(fields.time);
    int status = 0;
    if (!time || !ReadNumber(fields.status, status))
        return false;

    entry = AccessLogEntry();
    entry.time = *time;
    entry.kind = ReadPath(fields.path, fields.method, entry);
    if (entry.kind == AccessLogEntry::Other)
        return true;
    entry.status = status;
    entry.network = NetworkOf(fields.address);
    entry.completed = fields.completed == kCompleted;
    ReadNumber(fields.bytes, entry.bytes);
    if (entry.kind == AccessLogEntry::Check) {
        entry.version = fields.version;
        entry.answer = fields.answer;
        entry.package = fields.package;
    }
    return true;
}

/// Parses any JSON object, because data from clients can make nginx write escapes.
bool AccessLogParser::ParseWithQt(Text line, Fields &fields)
{
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray::fromRawData(line.data(), int(line.size())));
    if (!document.isObject())
        return false;
    const QJsonObject object = document.object();
    struct Place {
        Text *field;
        size_t at;
        size_t size;
    };
    std::array<Place, 10> places{};
    size_t count = 0;
    m_decoded.clear();
    for (auto value = object.begin(); value != object.end(); ++value) {
        Text *const field = FieldCalled(value.key().toStdString(), fields);
        if (!field)
            continue;
        const QByteArray text = value->isDouble() ? QByteArray::number(value->toDouble(), 'f', 0)
                                                  : value->toString().toUtf8();
        places.at(count++) = {field, m_decoded.size(), size_t(text.size())};
        m_decoded.append(text.constData(), size_t(text.size()));
    }
    for (const Place &place : places) {
        if (place.field)
            *place.field = Text(m_decoded).substr(place.at, place.size);
    }
    return true;
}

/// What is requested, by the same rules as the locations of the service.
AccessLogEntry::Kind AccessLogParser::ReadPath(Text path, Text method, AccessLogEntry &entry)
{
    Text rest = Normalized(path);
    Text segment = TakeSegment(rest);
    if (segment != kPackagesSegment && !rest.empty()) {
        entry.product = segment;
        segment = TakeSegment(rest);
    }
    if (segment == kCheckSegment && rest.empty())
        return method == "POST" ? AccessLogEntry::Check : AccessLogEntry::Other;
    if (segment != kPackagesSegment)
        return AccessLogEntry::Other;
    entry.package = TakeSegment(rest);
    if (entry.package.empty() || !rest.empty())
        return AccessLogEntry::Other;
    if (method == "HEAD")
        return AccessLogEntry::PackageHead;
    return method == "GET" ? AccessLogEntry::Download : AccessLogEntry::Other;
}

/// @p path in the form that nginx compares with its locations: decoded, without query, slashes
/// merged.
Text AccessLogParser::Normalized(Text path)
{
    path = path.substr(0, path.find('?'));
    if (path.find('%') == Text::npos && path.find("//") == Text::npos)
        return path;
    m_path.clear();
    for (size_t at = 0; at < path.size(); ++at) {
        char character = path[at];
        if (character == '%') {
            const std::optional<char> byte = Unescaped(path.substr(at + 1, 2));
            character = byte.value_or(character);
            at += byte ? 2 : 0;
        }
        if (character != '/' || m_path.empty() || m_path.back() != '/')
            m_path += character;
    }
    return m_path;
}
