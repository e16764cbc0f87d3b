#include "net/httpdownloadfile.h"

#include "config/global.h"
#include "config/paths.h"
#include "install/folderremoval.h"
#include "install/platform.h"
#include "net/checkwatchdog.h"
#include "net/contentcoding.h"
#include "net/packagename.h"
#include "net/requests.h"
#include "net/timelimits.h"
#include "net/tlspreparation.h"
#include "ui/dwondialog.h"
#include "ui/updatedialog.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QNetworkAccessManager>
#include <QTimer>
#include <QTimerEvent>

namespace
{

const QLatin1String kNoUpdate("0");

// An answer beyond this, compressed or not, is refused: memory does not grow with whatever the
// service sends.
constexpr qint64 kMaxCheckReplyBytes = 8LL * 1024 * 1024;

// Of a package name that is refused: it may be as long as the answer.
constexpr int kMaxLoggedName = 300;

// Bytes that may wait to be written before the connection is held back. So few that they are still
// in the processor's cache then: 1 MiB costs a third more of the processor's time.
constexpr qint64 kDownloadBufferBytes = 64LL * 1024;

/// The user asked never to be prompted for this version, and nobody asks for the prompt now.
bool IsSilenced()
{
    const Global &global = Global::instance;
    return global.noRemind != 0 && global.latestVersion == global.noRemindVersion &&
           !global.HasForcingSwitch();
}

bool HasNothingToOffer()
{
    return IsSilenced() || Global::instance.update == kNoUpdate;
}

/// What an earlier update left for the client to show must not be shown with this one.
void RemoveNotesMarker()
{
    QFile marker(Paths::NotesMarkerFile());
    if (!marker.exists())
        qInfo() << "isShowUpdataInfo.txt not exists";
    else if (marker.remove())
        qInfo() << "isShowUpdataInfo.txt is remove";
    else
        qDebug() << "failed to delete isShowUpdataInfo.txt: " << int(marker.error());
}

/// A nameless client has the folder of everybody's application data: that one is never emptied.
bool IsOwnFolder(const QString &folder)
{
    return !folder.mid(folder.lastIndexOf(QLatin1Char('/')) + 1).trimmed().isEmpty();
}

} // namespace

HttpDownLoadFile::HttpDownLoadFile(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<QNetworkReply::NetworkError>("QNetworkReply::NetworkError");
    Platform::KeepTlsUntilTheEnd();

    updateDialog = new UpdateDialog;
    DwonDialog *dwonDialog = updateDialog->ProgressDialog();
    connect(this, &HttpDownLoadFile::Aupdate, updateDialog, &UpdateDialog::updateMode);
    // Twice on purpose: every step of the progress reaches the bar two times.
    connect(this, &HttpDownLoadFile::UpdateBar, dwonDialog, &DwonDialog::UpdateProgressBar);
    connect(this, &HttpDownLoadFile::UpdateBar, dwonDialog, &DwonDialog::UpdateProgressBar);
    connect(updateDialog, &UpdateDialog::getPack, this, &HttpDownLoadFile::GetPackData);
    connect(this, &HttpDownLoadFile::InitCheck, this, &HttpDownLoadFile::CheckProcess);

    checkWatchdog = std::make_unique<CheckWatchdog>(this, [this] { DeleteResource(); });
    QTimer::singleShot(TimeLimits::FirstCheckDelayMs, this, &HttpDownLoadFile::TimerPro);
    // The worker's thread does that as it starts, in the pause that the check waits for anyway.
    QMetaObject::invokeMethod(this, &PrepareTls, Qt::QueuedConnection);
}

HttpDownLoadFile::~HttpDownLoadFile()
{
    checkWatchdog.reset();
    delete updateDialog;
    updateDialog = nullptr;
}

void HttpDownLoadFile::TimerPro()
{
    emit InitCheck();
}

void HttpDownLoadFile::CheckProcess()
{
    // A check that was started once more leaves its predecessor's replies under way: the managers
    // that own them live on below their successors.
    QNetworkAccessManager *const formerCheck = checkManager;
    QNetworkAccessManager *const formerDownload = downloadManager;
    checkManager = new QNetworkAccessManager;
    downloadManager = new QNetworkAccessManager;
    if (formerCheck != nullptr) {
        formerCheck->setParent(checkManager);
        formerDownload->setParent(downloadManager);
    }

    checkTimerId = 0;
    if (Global::instance.CheckClientRunning() != 0)
        SendCheckRequest();
    else
        QCoreApplication::quit();
}

void HttpDownLoadFile::SendCheckRequest()
{
    checkWatchdog->Begin();
    reply = checkManager->post(CheckRequest(Global::instance.updateCheckUrl),
                               CheckRequestBody(Global::instance.currentVersion));
    QNetworkReply *const answer = reply;
    // One byte more than is taken, so that an answer of just that size is told from a larger one.
    // Qt forgets a limit that is set on a POST at once. Set later than before the answer comes, it
    // may have no effect either: Qt's own thread does not look up while data keeps coming in.
    const auto limit = [answer] { answer->setReadBufferSize(kMaxCheckReplyBytes + 1); };
    QMetaObject::invokeMethod(answer, limit, Qt::QueuedConnection);
    connect(answer, &QNetworkReply::metaDataChanged, answer, limit);
    connect(answer, &QNetworkReply::readyRead, this, [this, answer] { RefuseLargeAnswer(answer); });
    connect(checkManager, &QNetworkAccessManager::finished, this,
            &HttpDownLoadFile::ReplyCheckDataRecv);
    StartTimer(checkTimerId);
}

void HttpDownLoadFile::ReplyCheckDataRecv(QNetworkReply *Reply)
{
    StopTimer(checkTimerId);
    if (!checkWatchdog->IsUnderWay())
        return;
    if (Reply->error() != QNetworkReply::NoError) {
        if (EndCheckWithClient())
            qDebug() << "Network Recv Back Error:" << Reply->error();
        return;
    }
    QByteArray answer = Reply->readAll();
    if (!DecodeContent(Reply->rawHeader("Content-Encoding"), kMaxCheckReplyBytes, answer)) {
        if (EndCheckWithClient())
            qDebug() << "check answer cannot be unpacked, bytes:" << answer.size();
        return;
    }
    Global &global = Global::instance;
    if (global.ParseServiceReply(answer) != 0 || global.latestVersion == global.currentVersion) {
        EndCheckWithClient();
        return;
    }

    RemoveNotesMarker();
    if (HasNothingToOffer()) {
        EndCheckWithClient();
        return;
    }
    packagePath = PackageFileName(global.latestVersionUrl);
    if (!IsUsablePackageName(packagePath)) {
        if (EndCheckWithClient())
            qDebug() << "package name cannot be used:" << packagePath.left(kMaxLoggedName);
        return;
    }
    PrepareDownload();
    if (checkWatchdog->EndWithPrompt())
        emit Aupdate(global.update);
}

void HttpDownLoadFile::RefuseLargeAnswer(QNetworkReply *answer)
{
    if (answer->bytesAvailable() <= kMaxCheckReplyBytes || !checkWatchdog->EndWithClient())
        return;
    // Nothing more of it is received while the client is started.
    answer->abort();
    Global::instance.LaunchClient();
    qDebug() << "check answer is too large, bytes: more than" << kMaxCheckReplyBytes;
}

void HttpDownLoadFile::PrepareDownload()
{
    downloadDir = Paths::DownloadFolder(Global::instance.appName);
    QDir().mkpath(downloadDir);
    packagePath = downloadDir + QLatin1Char('/') + packagePath;
    qInfo() << "update fileName: " << packagePath;
}

void HttpDownLoadFile::GetPackData()
{
    // Windows removes no file that is open, and an attempt under way may have this one.
    packageFile.close();
    EmptyDownloadFolder();
    if (!OpenPackageFile()) {
        QCoreApplication::quit();
        return;
    }
    SendPackageRequest();
    StartTimer(downloadTimerId);
}

void HttpDownLoadFile::EmptyDownloadFolder() const
{
    if (IsOwnFolder(downloadDir))
        EmptyFolder(downloadDir);
}

bool HttpDownLoadFile::OpenPackageFile()
{
    if (packageFile.fileName().isEmpty())
        packageFile.setFileName(packagePath);

    if (!IsOwnFolder(downloadDir)) {
        qDebug() << packagePath << " Open failed:" << int(QFileDevice::OpenError);
        return false;
    }
    if (!packageFile.open(QIODevice::ReadWrite)) {
        qDebug() << packagePath << " Open failed:" << int(packageFile.error());
        return false;
    }
    return true;
}

void HttpDownLoadFile::SendPackageRequest()
{
    // An attempt that is still under way must not write into this one's file.
    if (reply != nullptr)
        reply->disconnect(this);

    const QString address = Global::instance.updatePackageUrl + Global::instance.id;
    packageDecoder.reset();
    reply = downloadManager->get(PackageRequest(address));
    reply->setReadBufferSize(kDownloadBufferBytes);
    connect(reply, &QNetworkReply::readyRead, this, &HttpDownLoadFile::ReplyPackDataRecv);
    connect(reply, &QNetworkReply::finished, this, &HttpDownLoadFile::ReplyFinished);
    connect(reply, &QNetworkReply::downloadProgress, this,
            &HttpDownLoadFile::UpdateDataReadProgress);
    // By string: the overloaded error() is the only form that Qt 5.12 and 5.15 both have.
    connect(reply, SIGNAL(error(QNetworkReply::NetworkError)), this,
            SLOT(ReplyError(QNetworkReply::NetworkError)));
}

void HttpDownLoadFile::ReplyPackDataRecv()
{
    if (reply == nullptr)
        return;
    lastActivityMs = QDateTime::currentMSecsSinceEpoch();
    WritePackage(reply->readAll());
    packageFile.flush();
}

void HttpDownLoadFile::WritePackage(const QByteArray &received)
{
    if (packageDecoder == nullptr)
        packageDecoder = std::make_unique<ContentDecoder>(reply->rawHeader("Content-Encoding"));
    const auto write = [this](const QByteArray &plain) {
        return packageFile.write(plain) == plain.size();
    };
    // What is damaged here is missing in the file: the digest tells.
    packageDecoder->Feed(received, write);
}

void HttpDownLoadFile::UpdateDataReadProgress(qint64 bytesRead, qint64 totalBytes)
{
    emit UpdateBar(bytesRead, totalBytes);
}

void HttpDownLoadFile::ReplyError(QNetworkReply::NetworkError err)
{
    packageFile.close();
    qDebug() << "Download Network Error:" << err;
}

void HttpDownLoadFile::ReplyFinished()
{
    if (reply == nullptr || reply->error() != QNetworkReply::NoError)
        return;
    StopTimer(downloadTimerId);
    ReleaseReply();
    packageFile.close();

    if (Global::instance.FileMd5(packagePath) != Global::instance.md5) {
        ShowError(QStringLiteral("File conrrupted, update failed."),
                  QStringLiteral("文件损坏，更新失败"));
        qDebug() << packagePath << " md5 check filed";
        return;
    }
    HandOverPackage();
}

void HttpDownLoadFile::HandOverPackage()
{
    Global &global = Global::instance;
    if (global.updateType == Global::InstallerPackage) {
        global.LaunchProgram(packagePath);
    } else if (global.updateType == Global::ZipPackage) {
        if (global.InstallPackage(packagePath) != Global::Success)
            QCoreApplication::quit();
        global.LaunchClient();
    }
}

void HttpDownLoadFile::timerEvent(QTimerEvent *event)
{
    const qint64 elapsedMs = QDateTime::currentMSecsSinceEpoch() - lastActivityMs;
    if (event->timerId() == checkTimerId) {
        if (TimeLimits::CheckTimedOut(elapsedMs))
            GiveUpCheck();
    } else if (event->timerId() == downloadTimerId) {
        if (TimeLimits::DownloadStalled(elapsedMs))
            AbandonDownload();
    }
}

void HttpDownLoadFile::GiveUpCheck()
{
    if (!checkWatchdog->EndWithClient())
        return;
    qDebug() << "NetworkReply Post TimerOut";
    Global::instance.LaunchClient();
}

void HttpDownLoadFile::AbandonDownload()
{
    StopTimer(downloadTimerId);
    packageFile.close();
    ReleaseReply();
    qDebug() << "NetworkReply Get TimerOut";
    ShowError(QStringLiteral("Installation failed. Network exception, please check."),
              QStringLiteral("安装失败，网络异常，请检查网络"));
}

void HttpDownLoadFile::DeleteResource()
{
    ReleaseReply();
    for (QNetworkAccessManager **manager : {&checkManager, &downloadManager}) {
        if (*manager == nullptr)
            continue;
        (*manager)->deleteLater();
        delete *manager;
        *manager = nullptr;
    }
    StopTimer(checkTimerId);
    StopTimer(downloadTimerId);
}

bool HttpDownLoadFile::EndCheckWithClient()
{
    if (!checkWatchdog->EndWithClient())
        return false;
    Global::instance.LaunchClient();
    return true;
}

void HttpDownLoadFile::ReleaseReply()
{
    if (reply == nullptr)
        return;
    // Deleted at once, also inside its own finished(); that cancels the deferred deletion.
    reply->deleteLater();
    delete reply;
    reply = nullptr;
}

void HttpDownLoadFile::StartTimer(int &timerId)
{
    lastActivityMs = QDateTime::currentMSecsSinceEpoch();
    timerId = startTimer(TimeLimits::TickMs, Qt::CoarseTimer);
}

void HttpDownLoadFile::StopTimer(int &timerId)
{
    if (timerId == 0)
        return;
    killTimer(timerId);
    timerId = 0;
}

void HttpDownLoadFile::ShowError(const QString &english, const QString &chinese)
{
    emit updateDialog->ProgressDialog()->ErrSignal(Global::instance.IsEnglish() ? english
                                                                                : chinese);
}
