// SPDX-License-Identifier: MIT
#include "config/arguments.h"

#include <algorithm>

bool HasForcingSwitch(const QStringList &arguments)
{
    return arguments.contains(Switch::NoRemind) || arguments.contains(Switch::Immediately);
}

bool IsMeetingLink(const QString &argument)
{
    return argument.contains(QLatin1String("qorb-meeting"));
}

int IndexOfMeetingLink(const QStringList &arguments)
{
    const auto link = std::find_if(arguments.cbegin(), arguments.cend(), IsMeetingLink);
    return link == arguments.cend() ? -1 : int(link - arguments.cbegin());
}

QString ClientUrlArgument(const QString &meetingLink)
{
    return QStringLiteral("--url=") + meetingLink.split(QStringLiteral("://")).value(1);
}

QStringList WithoutUpdaterSwitches(QStringList arguments)
{
    arguments.removeAll(Switch::NoRemind);
    arguments.removeAll(Switch::Immediately);
    return arguments;
}

QStringList ClientArguments(const QStringList &arguments)
{
    QStringList passed = WithoutUpdaterSwitches(arguments);
    const int link = IndexOfMeetingLink(passed);
    if (link >= 0)
        passed.append(ClientUrlArgument(passed.takeAt(link)));
    if (passed.isEmpty())
        passed.append(QStringLiteral("-autoupdate"));
    return passed;
}
