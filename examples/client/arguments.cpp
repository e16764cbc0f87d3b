// SPDX-License-Identifier: MIT
#include "examples/client/arguments.h"

#include <QRegularExpression>

namespace
{

const QLatin1String kAutoUpdate("-autoupdate");
const QLatin1String kProfile("--profile");
const QLatin1String kUrl("--url=");

bool HasQuotesOrBlanks(const QString &text)
{
    static const QRegularExpression form(QStringLiteral("[\"'\\s]"));
    return form.match(text).hasMatch();
}

} // namespace

std::optional<StartArguments> ReadArguments(const QStringList &arguments)
{
    StartArguments request;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments.at(i);
        if (argument == kAutoUpdate)
            continue; // the updater had nothing to pass on
        if (argument == kProfile && i + 1 < arguments.size())
            request.profile = arguments.at(++i);
        else if (argument.startsWith(kUrl) && !HasQuotesOrBlanks(argument))
            request.meeting = argument.mid(kUrl.size());
        else
            return std::nullopt;
    }
    return request;
}
