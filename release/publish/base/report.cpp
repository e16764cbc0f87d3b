// SPDX-License-Identifier: MIT
#include "release/publish/base/report.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>

namespace
{

/// People do not read more than this; --json prints all of them.
constexpr int kMaxLines = 20;

constexpr double kMiB = 1024.0 * 1024.0;

void PrintFindings(const Findings &findings, const char *prefix)
{
    for (const Finding &finding : findings.mid(0, kMaxLines))
        std::fprintf(stderr, "publish: %s%s\n", prefix, finding.message.toLocal8Bit().constData());
    if (findings.size() > kMaxLines) {
        std::fprintf(stderr, "publish: %sand %d more; --json lists them all\n", prefix,
                     findings.size() - kMaxLines);
    }
}

QJsonArray ToJson(const Findings &findings)
{
    QJsonArray array;
    for (const Finding &finding : findings) {
        array.append(QJsonObject{{QStringLiteral("rule"), finding.rule},
                                 {QStringLiteral("path"), finding.path},
                                 {QStringLiteral("message"), finding.message}});
    }
    return array;
}

void PrintJson(const Outcome &outcome)
{
    QJsonObject object = outcome.facts;
    object.insert(QStringLiteral("ok"), outcome.refusals.isEmpty());
    object.insert(QStringLiteral("refusals"), ToJson(outcome.refusals));
    object.insert(QStringLiteral("warnings"), ToJson(outcome.warnings));
    // JSON is UTF-8 on every system.
    std::fputs(QJsonDocument(object).toJson().constData(), stdout);
}

} // namespace

QString SizeText(qint64 bytes)
{
    return QStringLiteral("%1 MiB").arg(double(bytes) / kMiB, 0, 'f', 2);
}

int Report(const Outcome &outcome, bool asJson)
{
    PrintFindings(outcome.warnings, "warning: ");
    PrintFindings(outcome.refusals, "");
    if (asJson)
        PrintJson(outcome);
    else
        std::fputs(outcome.summary.toLocal8Bit().constData(), stdout);
    // A script must not mistake a truncated result for a complete one.
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fputs("publish: the result cannot be written to standard output, but the command "
                   "itself is done; check where the output goes\n",
                   stderr);
        return ExitRefused;
    }
    return outcome.refusals.isEmpty() ? ExitOk : ExitRefused;
}
