// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * Windows' rules for the name of one file or folder, without its path. They apply on every system,
 * so that a package is accepted or refused everywhere alike. Source: Microsoft, "Naming Files,
 * Paths, and Namespaces". Pure functions, callable from every thread.
 */
namespace WindowsNames
{

/// True for the name of a device, such as "NUL", "com1.txt" or "LPT¹ .zip", in any letter case and
/// with or without an extension.
bool IsDevice(const QString &name);

/// True when the name contains a character that Windows does not allow: <>:"/\|?*
bool HasForbiddenCharacter(const QString &name);

/// True when the name contains an invisible character that changes how the name looks: a control
/// character, half a surrogate pair, or a formatting character such as those that reverse the
/// direction of the text.
bool HasInvisibleCharacter(const QString &name);

/// The name as Windows stores it: without dots and blanks at its end.
QString AsKept(const QString &name);

/// True when Windows runs a file of this name (".bat" or ".cmd") in the command interpreter, which
/// executes what follows an "&" and the like in the arguments.
bool RunsInCommandInterpreter(const QString &name);

} // namespace WindowsNames
