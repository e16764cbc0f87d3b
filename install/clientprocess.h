#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

/**
 * Asks tasklist for processes with the image name @p appName and tells whether its output contains
 * that name (case-sensitive; a plain substring test). Blocks for up to 30000 ms; what tasklist has
 * said by then decides, and a tasklist that cannot be started counts as not running. The caller
 * closes @p tasklist.
 */
bool ClientIsListed(QProcess &tasklist, const QString &appName);

/**
 * Ends a running client by force and waits until taskkill is done. Does nothing when the client
 * does not run. Blocks as ClientIsListed() does.
 */
void StopRunningClient(const QString &appName);

/// True for an argument that holds a meeting link ("qorb-meeting://TEXT").
bool IsMeetingLink(const QString &argument);

/// What the client takes for a meeting link: "--url=TEXT"; TEXT is empty when "://" is missing.
QString ClientUrlArgument(const QString &meetingLink);

/// What a started program is passed of the updater's @p arguments: all but the updater's switches.
QStringList ProgramArguments(QStringList arguments);

/**
 * What the client is passed of the updater's @p arguments: the same, but for the first meeting
 * link, which moves to the end as ClientUrlArgument(); "-autoupdate" when nothing is left.
 */
QStringList ClientArguments(const QStringList &arguments);
