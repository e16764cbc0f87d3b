// SPDX-License-Identifier: MIT
#pragma once

#include <QLatin1String>
#include <QString>
#include <QStringList>

/**
 * The updater's command line, and the arguments that it passes to the programs that it starts. Pure
 * functions, callable from every thread.
 */

/// The updater's own switches. They are compared exactly and never passed on.
namespace Switch
{
inline const QLatin1String NoRemind("-noremid");        ///< check even while the client runs
inline const QLatin1String Immediately("-immediately"); ///< the same, and update without asking
} // namespace Switch

/// True when one of the two switches is among @p arguments.
bool HasForcingSwitch(const QStringList &arguments);

/// True for an argument that contains a meeting link ("qorb-meeting://TEXT").
bool IsMeetingLink(const QString &argument);

/// The index of the first meeting link among @p arguments, or -1.
int IndexOfMeetingLink(const QStringList &arguments);

/// The client's argument for a meeting link: "--url=TEXT"; TEXT is empty when "://" is missing.
QString ClientUrlArgument(const QString &meetingLink);

/// The arguments for a started installer: @p arguments without the updater's switches.
QStringList WithoutUpdaterSwitches(QStringList arguments);

/**
 * The arguments for the client: @p arguments without the updater's switches, and with the first
 * meeting link moved to the end as ClientUrlArgument(). "-autoupdate" when nothing is left.
 */
QStringList ClientArguments(const QStringList &arguments);
