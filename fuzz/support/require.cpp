// SPDX-License-Identifier: MIT
#include "fuzz/support/require.h"

#include <QStringList>
#include <QtGlobal>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

QStringList &Lines()
{
    static QStringList lines;
    return lines;
}

bool IsControl(QChar character)
{
    return character.category() == QChar::Other_Control;
}

void Catch(QtMsgType, const QMessageLogContext &, const QString &text)
{
    Require(std::none_of(text.cbegin(), text.cend(), IsControl), "a log message is one line", text);
    Lines().append(text);
}

} // namespace

void Require(bool holds, const char *promise)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", promise);
    std::abort();
}

void Require(bool holds, const char *promise, const QString &seen)
{
    if (holds)
        return;
    std::fprintf(stderr, "seen: %s\n", qPrintable(seen));
    Require(false, promise);
}

CleanLog::CleanLog()
{
    Lines().clear();
    qInstallMessageHandler(Catch);
}

CleanLog::~CleanLog()
{
    qInstallMessageHandler(nullptr);
}

bool CleanLog::Has(const QString &text) const
{
    return std::any_of(Lines().cbegin(), Lines().cend(),
                       [&text](const QString &line) { return line.contains(text); });
}
