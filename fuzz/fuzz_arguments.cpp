// SPDX-License-Identifier: MIT
// The command line of the updater, one argument per line, and what is passed on to other programs.

#include "config/arguments.h"
#include "fuzz/support/require.h"

#include <QString>
#include <QStringList>

#include <cstddef>
#include <cstdint>

namespace
{

const QString kUrlOption = QStringLiteral("--url=");
const QString kNothingLeft = QStringLiteral("-autoupdate");

/// The arguments that are passed on unchanged, found in another way than in the tested code.
QStringList WithoutSwitches(const QStringList &arguments)
{
    QStringList rest;
    for (const QString &argument : arguments) {
        if (argument != QLatin1String("-noremid") && argument != QLatin1String("-immediately"))
            rest.append(argument);
    }
    return rest;
}

/// The text behind the first "://" up to the next.
QString LinkText(const QString &link)
{
    const QString mark = QStringLiteral("://");
    const int start = link.indexOf(mark);
    if (start < 0)
        return QString();
    const int end = link.indexOf(mark, start + mark.size());
    return end < 0 ? link.mid(start + mark.size())
                   : link.mid(start + mark.size(), end - start - mark.size());
}

void RequireRightClientArguments(QStringList rest, QStringList passed)
{
    int link = 0;
    while (link < rest.size() && !rest.at(link).contains(QLatin1String("qorb-meeting")))
        ++link;
    if (link < rest.size()) {
        const QString text = LinkText(rest.takeAt(link));
        Require(passed.takeLast() == kUrlOption + text,
                "a meeting link is the last argument, as --url=");
        Require(passed == rest, "the arguments around a meeting link keep their order");
        return;
    }
    if (rest.isEmpty())
        rest.append(kNothingLeft);
    Require(passed == rest, "arguments without a link keep their order");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));
    const QStringList arguments =
        size == 0 ? QStringList() : text.split(QLatin1Char('\n'), Qt::KeepEmptyParts);
    const QStringList rest = WithoutSwitches(arguments);

    Require(WithoutUpdaterSwitches(arguments) == rest,
            "a program gets all arguments except the switches");

    const QStringList passed = ClientArguments(arguments);
    Require(!passed.isEmpty(), "the client always gets an argument");
    Require(!passed.contains(Switch::NoRemind) && !passed.contains(Switch::Immediately),
            "the client gets none of the updater's switches");
    RequireRightClientArguments(rest, passed);
    return 0;
}
