#pragma once

#include <QString>

/**
 * Windows' rules for the name of one file or folder, without its path. They hold on every system,
 * so that a package is taken or refused everywhere alike. Source: Microsoft, "Naming Files, Paths,
 * and Namespaces". Pure functions, callable from every thread.
 */
namespace WindowsNames
{

/// True for the name of a device, such as "NUL", "com1.txt" or "LPT¹ .zip": in any letter case,
/// with or without an extension.
bool IsDevice(const QString &name);

/// True when the name holds a character that Windows does not allow: <>:"/\|?*
bool HasForbiddenCharacter(const QString &name);

/// True when the name holds a character that is not seen but changes what is seen: a control
/// character, half a surrogate pair, or a formatting character such as those that reverse the
/// direction of the text.
bool HasInvisibleCharacter(const QString &name);

/// The name as Windows keeps it: without dots and blanks at its end.
QString AsKept(const QString &name);

/// True when starting a file of this name starts the command interpreter, which takes "&" and the
/// like in its arguments for commands: ".bat" and ".cmd".
bool RunsInCommandInterpreter(const QString &name);

} // namespace WindowsNames
