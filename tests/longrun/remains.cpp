// SPDX-License-Identifier: MIT
#include "tests/longrun/remains.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <sys/prctl.h>
#include <sys/wait.h>

namespace
{

/// Empty when the file cannot be read, because the process may just have ended.
QByteArray Read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

QStringList Remains::Listing(const QString &folder)
{
    QStringList paths;
    QDirIterator entries(folder,
                         QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QString path = entries.next().mid(folder.size() + 1);
        paths.append(entries.fileInfo().isDir() ? path + QLatin1Char('/') : path);
    }
    paths.sort();
    return paths;
}

QStringList Remains::ListingOf(const QStringList &files)
{
    QStringList paths = files;
    for (const QString &file : files) {
        for (int slash = file.indexOf(QLatin1Char('/')); slash >= 0;
             slash = file.indexOf(QLatin1Char('/'), slash + 1))
            paths.append(file.left(slash + 1));
    }
    paths.removeDuplicates();
    paths.sort();
    return paths;
}

void Remains::AdoptOrphans()
{
    if (prctl(PR_SET_CHILD_SUBREAPER, 1) != 0)
        qFatal("orphans cannot be adopted");
}

QStringList Remains::Children()
{
    QStringList children;
    const QDir tasks(QStringLiteral("/proc/self/task"));
    const QStringList names = tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &task : names) {
        const QByteArrayList numbers =
            Read(tasks.filePath(task) + QStringLiteral("/children")).split(' ');
        for (const QByteArray &number : numbers) {
            const QByteArray name =
                Read(QStringLiteral("/proc/%1/comm").arg(QString::fromLatin1(number))).trimmed();
            // waitpid() also removes a child that has ended.
            if (!number.isEmpty() && waitpid(number.toInt(), nullptr, WNOHANG) == 0)
                children.append(QStringLiteral("%1 (%2)").arg(QString::fromLatin1(number),
                                                              QString::fromUtf8(name)));
        }
    }
    return children;
}

QStringList Remains::Without(QStringList lines, const QStringList &others)
{
    for (const QString &other : others)
        lines.removeOne(other);
    return lines;
}
