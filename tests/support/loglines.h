// SPDX-License-Identifier: MIT
#pragma once

#include <QLatin1String>
#include <QString>

/**
 * The lines of the log, as LogCapture::Messages() and UpdaterRun::Log() report them: "[LEVEL]
 * text". Support staff and tools search the log for these texts, misspellings included, so the
 * tests compare whole lines. Each line is spelled out here only.
 */
namespace LogLine
{

/// A text as the log shows it: in quotes, with a backslash before each quote and backslash.
inline QString Quoted(QString text)
{
    text.replace(QLatin1Char('\\'), QStringLiteral("\\\\"));
    text.replace(QLatin1Char('"'), QStringLiteral("\\\""));
    return QLatin1Char('"') + text + QLatin1Char('"');
}

inline QString CommandLineParameter(const QString &argument)
{
    return QStringLiteral("[INFO] cmd line parameters : ") + Quoted(argument);
}

// Configuration

/// How Configuration() begins.
inline QString ConfigurationBegin()
{
    return QStringLiteral("[INFO] currentVersion: ");
}

inline QString Configuration(const QString &version, const QString &checkUrl,
                             const QString &packageUrl, int noRemind)
{
    return ConfigurationBegin() + Quoted(version) + QStringLiteral(" ,updateCheckUrl: ") +
           Quoted(checkUrl) + QStringLiteral(" ,m_getPackUrl: ") + Quoted(packageUrl) +
           QStringLiteral(" ,m_remide: ") + QString::number(noRemind);
}

/// @p error is the number of a QFileDevice::FileError, as in all lines below that have one.
inline QString UpdateConfigOpenFailed(int error)
{
    return QStringLiteral("[DEBUG] updateconfig.json open failed: %1").arg(error);
}

/// @p error is the number of a QJsonParseError::ParseError.
inline QString UpdateConfigDamaged(int error)
{
    return QStringLiteral("[DEBUG]  Auto Jsondata Error: %1").arg(error);
}

inline QString NotExists(const QString &path)
{
    return QStringLiteral("[DEBUG] %1  Not exists").arg(Quoted(path));
}

/// A client's configuration or a package that is to be hashed.
inline QString OpenFailed(const QString &path)
{
    return QStringLiteral("[DEBUG] %1  open failed: 5").arg(Quoted(path));
}

/// @p error is the number of a QJsonParseError::ParseError.
inline QString ClientConfigDamaged(int error)
{
    return QStringLiteral("[DEBUG]  APP Jsondata Error: %1").arg(error);
}

inline QString LanguageFileOpenFailed()
{
    return QStringLiteral("[WARNING] languagefile open failed: 5");
}

inline QString LanguageFileMissing()
{
    return QStringLiteral("[INFO] languagefile not exist");
}

inline QString UpdateConfigWriteFailed(int error)
{
    return QStringLiteral("[DEBUG] WriteConfigToFile failed: %1").arg(error);
}

inline QString ClientConfigWriteFailed(int error)
{
    return QStringLiteral("[DEBUG] WriteConfigToClientFile failed: %1").arg(error);
}

// The client and other programs

inline QString AlreadyRuns(const QString &imageName)
{
    return QStringLiteral("[INFO] %1  Already Run...").arg(Quoted(imageName));
}

inline QString Starting(const QString &program)
{
    return QStringLiteral("[INFO] %1  starting...").arg(Quoted(program));
}

inline QString FreeSpaceFailed(const QString &errorCode)
{
    return QStringLiteral("[DEBUG] Call to GetDiskFreeSpaceEx() failed: ") + errorCode;
}

// The check

/// @p logged is the body as the log shows it, in its quotes.
inline QString Answer(const QString &logged)
{
    return QStringLiteral("[INFO] Service Jsondata: ") + logged;
}

/// @p error is the number of a QJsonParseError::ParseError.
inline QString AnswerDamaged(int error)
{
    return QStringLiteral("[DEBUG]  Recv Services Jsondata Error: %1").arg(error);
}

inline QString AnswerRefused(const QString &code)
{
    return QStringLiteral("[DEBUG] Services Jsondata Code Error: ") + Quoted(code);
}

inline QString AnswerTooLarge()
{
    return QStringLiteral("[DEBUG] check answer is too large, bytes: more than 8388608");
}

inline QString AnswerCannotBeUnpacked(int bytes)
{
    return QStringLiteral("[DEBUG] check answer cannot be unpacked, bytes: %1").arg(bytes);
}

/// @p error is the enumerator of a QNetworkReply::NetworkError, such as "HostNotFoundError".
inline QString CheckFailed(const QString &error)
{
    return QStringLiteral("[DEBUG] Network Recv Back Error: QNetworkReply::") + error;
}

inline QString CheckTimedOut()
{
    return QStringLiteral("[DEBUG] NetworkReply Post TimerOut");
}

inline QString CheckStuck()
{
    return QStringLiteral("[DEBUG] check is stuck, client started without it");
}

inline QString MarkerMissing()
{
    return QStringLiteral("[INFO] isShowUpdataInfo.txt not exists");
}

inline QString MarkerRemoved()
{
    return QStringLiteral("[INFO] isShowUpdataInfo.txt is remove");
}

inline QString MarkerRemovalFailed()
{
    return QStringLiteral("[DEBUG] failed to delete isShowUpdataInfo.txt:  9");
}

inline QString NotesShownAsPlainText()
{
    return QStringLiteral("[WARNING] release notes shown as plain text");
}

// The download

inline QString PackageFile(const QString &path)
{
    return QStringLiteral("[INFO] update fileName:  ") + Quoted(path);
}

/// How PackageNameRefused() begins: a long name is cut.
inline QString PackageNameRefusedBegin()
{
    return QStringLiteral("[DEBUG] package name cannot be used: ");
}

inline QString PackageNameRefused(const QString &name)
{
    return PackageNameRefusedBegin() + Quoted(name);
}

inline QString PackageOpenFailed(const QString &path)
{
    return QStringLiteral("[DEBUG] %1  Open failed: 5").arg(Quoted(path));
}

inline QString PackageReadFailed(const QString &path)
{
    return QStringLiteral("[DEBUG] %1  read failed: 1").arg(Quoted(path));
}

/// @p error is the enumerator of a QNetworkReply::NetworkError.
inline QString DownloadFailed(const QString &error)
{
    return QStringLiteral("[DEBUG] Download Network Error: QNetworkReply::") + error;
}

inline QString DownloadTimedOut()
{
    return QStringLiteral("[DEBUG] NetworkReply Get TimerOut");
}

/// How Digests() begins.
inline QString DigestsBegin()
{
    return QStringLiteral("[INFO] org: ");
}

/// The MD5 digest that the service announced and that of the package that came.
inline QString Digests(const QString &announced, const QString &computed)
{
    return DigestsBegin() +
           QStringLiteral("%1  checkmd5: %2").arg(Quoted(announced), Quoted(computed));
}

inline QString DigestDiffers(const QString &path)
{
    return QStringLiteral("[DEBUG] %1  md5 check filed").arg(Quoted(path));
}

// The installation

inline QString Unpacked(const QString &package)
{
    return QStringLiteral("[INFO] %1  successfully decompressed").arg(Quoted(package));
}

/// How UnpackFailed() begins.
inline QString UnpackFailedBegin()
{
    return QStringLiteral("[DEBUG] unzip  ");
}

inline QString UnpackFailed(const QString &target, int error)
{
    return UnpackFailedBegin() + Quoted(target) + QStringLiteral("  failed: %1").arg(error);
}

inline QString NotesWritten()
{
    return QStringLiteral("[INFO] update.log write successed");
}

inline QString NotesWriteFailed()
{
    return QStringLiteral("[DEBUG] update.log write failed: 5");
}

inline QString MarkerWritten()
{
    return QStringLiteral("[INFO] isShowUpdataInfo.txt write successed");
}

inline QString MarkerWriteFailed()
{
    return QStringLiteral("[DEBUG] isShowUpdataInfo.txt write failed: 5");
}

inline QString ClientCopied(const QString &programFolder)
{
    return QStringLiteral("[INFO] %1  copy file successed").arg(Quoted(programFolder));
}

inline QString CopyFailed()
{
    return QStringLiteral("[DEBUG] copy file error:  QProcess::FailedToStart");
}

inline QString VersionRecorded()
{
    return QStringLiteral("[WARNING] autoupdate config veison update successed");
}

inline QString ScriptWritten()
{
    return QStringLiteral("[INFO] cmdscpt write successed");
}

inline QString ScriptWriteFailed(const QString &text)
{
    return QStringLiteral("[DEBUG] %1  write failed: 5").arg(Quoted(text));
}

} // namespace LogLine
