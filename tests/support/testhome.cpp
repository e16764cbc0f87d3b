// SPDX-License-Identifier: MIT
#include "tests/support/testhome.h"

#include "config/global.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

TestHome::TestHome() : m_oldWorkingFolder(QDir::currentPath())
{
    if (!m_root.isValid())
        qFatal("no temporary folder: %s", qPrintable(m_root.errorString()));
    for (const char *folder : {"home", "tmp", "commands", "Client/AutoUpdate"})
        QDir(m_root.path()).mkpath(QLatin1String(folder));

    SetVariable("HOME", QFile::encodeName(m_root.filePath(QStringLiteral("home"))));
    SetVariable("TMPDIR", QFile::encodeName(m_root.filePath(QStringLiteral("tmp"))));
#ifdef Q_OS_WIN
    // Qt reads this variable when the system names no home folder, as Wine does here.
    SetVariable("USERPROFILE", QFile::encodeName(m_root.filePath(QStringLiteral("home"))));
    for (const char *variable : {"TMP", "TEMP"})
        SetVariable(variable, QFile::encodeName(m_root.filePath(QStringLiteral("tmp"))));
#endif
    const QByteArray separator(1, QDir::listSeparator().toLatin1());
    SetVariable("PATH", QFile::encodeName(CommandsFolder()) + separator + HOSTTOOLS_DIR +
                            separator + qgetenv("PATH"));
    QDir::setCurrent(ProgramFolder());
    ResetGlobal();
}

TestHome::~TestHome()
{
    QDir::setCurrent(m_oldWorkingFolder);
    // All variables, because the next TestHome is created in the folder for temporary files.
    for (const auto &variable : m_oldVariables) {
        if (variable.second.isNull())
            qunsetenv(variable.first);
        else
            qputenv(variable.first, variable.second);
    }
    ResetGlobal();
}

void TestHome::SetVariable(const char *name, const QByteArray &value)
{
    m_oldVariables.emplace_back(name, qgetenv(name));
    qputenv(name, value);
}

QString TestHome::Home() const
{
    return QDir::homePath();
}

QString TestHome::Scratch() const
{
    QDir(m_root.path()).mkpath(QStringLiteral("scratch"));
    return m_root.filePath(QStringLiteral("scratch"));
}

QString TestHome::CommandsFolder() const
{
#ifdef Q_OS_WIN
    // Windows looks for commands in the working folder, then in its own folders, then on the search
    // path.
    return ProgramFolder();
#else
    return m_root.filePath(QStringLiteral("commands"));
#endif
}

QString TestHome::ClientDataFolder() const
{
    const QString folder = Home() + QStringLiteral("/AppData/Roaming/norvaneAssistant");
    QDir().mkpath(folder);
    return folder;
}

QString TestHome::UniqueImageName()
{
    static int count = 0;
    return QStringLiteral("Client-%1-%2.exe").arg(QCoreApplication::applicationPid()).arg(++count);
}

void TestHome::WriteUpdateConfig(const QByteArray &content) const
{
    WriteFile(UpdateConfigFile(), content);
}

QStringList TestHome::LogLines() const
{
    const QByteArray log = ReadFile(LogFile());
    if (!log.isEmpty() && !log.endsWith("\r\n"))
        qFatal("the log's last line has no CR LF");
    QStringList lines = QString::fromUtf8(log).split(QStringLiteral("\r\n"));
    lines.removeLast();
    return lines;
}

QByteArray ReadFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s: %s", qPrintable(path), qPrintable(file.errorString()));
    return file.readAll();
}

void WriteFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s: %s", qPrintable(path), qPrintable(file.errorString()));
}

void WriteShellScript(const QString &path, const QByteArray &lines)
{
    WriteFile(path, "#!/bin/sh\n" + lines);
    if (!QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                         QFileDevice::ExeOwner))
        qFatal("cannot make %s executable", qPrintable(path));
}

void ResetGlobal()
{
    Global &global = Global::instance;
    for (QString *text :
         {&global.appName, &global.appConfigFile, &global.appPath, &global.updateCheckUrl,
          &global.updatePackageUrl, &global.currentVersion, &global.noRemindVersion,
          &global.packageDir, &global.code, &global.desc, &global.id, &global.update,
          &global.latestVersion, &global.latestVersionUrl, &global.latestVersionInfo, &global.md5,
          &global.sha1, &global.scriptPath, &global.language})
        text->clear();
    global.noRemind = 0;
    global.packageSize = 0;
    global.updateType = 0;
    global.cmdLineArgs.clear();
}

bool RunUntilQuit(int timeoutMs)
{
    constexpr int timedOut = 77;
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, [] { QCoreApplication::exit(timedOut); });
    limit.start(timeoutMs);
    return QCoreApplication::exec() != timedOut;
}
