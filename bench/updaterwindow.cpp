#include "bench/updaterwindow.h"

#include <QProcess>
#include <QStringList>

QString UpdaterWindow()
{
    QProcess search;
    search.start(QStringLiteral("xdotool"),
                 {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                  QStringLiteral("--name"), QStringLiteral("^App Update$")});
    search.waitForFinished();
    return QString::fromLatin1(search.readAllStandardOutput()).trimmed();
}
