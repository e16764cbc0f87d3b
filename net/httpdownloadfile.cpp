// SPDX-License-Identifier: MIT
#include "net/httpdownloadfile.h"

#include "config/global.h"
#include "config/paths.h"
#include "config/servicecontract.h"
#include "install/folderremoval.h"
#include "net/answerlimits.h"
#include "net/checkwatchdog.h"
#include "net/contentcoding.h"
#include "net/processend.h"
#include "net/requests.h"
#include "net/serviceoffer.h"
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

// How much of a refused package name is logged. The name may be as long as the answer.
constexpr int kMaxLoggedName = 300;

// Bytes that may be buffered before the server has to wait. They should fit into the processor's
// cache: a buffer of 1 MiB costs a third more processor time.
constexpr qint64 kDownloadBufferBytes = 64LL * 1024;

/// The client must not show the notes of an earlier update after this one.
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

/// Deletes @p object at once, even while it delivers one of its signals, and sets it to null. The
/// destruction cancels the deferred deletion.
template <class T> void DeleteNow(T *&object)
{
    if (object == nullptr)
        return;
    object->deleteLater();
    delete object;
    object = nullptr;
}

} // namespace

HttpDownLoadFile::HttpDownLoadFile(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<QNetworkReply::NetworkError>("QNetworkReply::NetworkError");
    ProcessEnd::KeepTlsUntilTheEnd();

    updateDialog = new UpdateDialog;
    DwonDialog *dwonDialog = updateDialog->ProgressDialog();
    connect(this, &HttpDownLoadFile::Aupdate, updateDialog, &UpdateDialog::updateMode);
    // Connected twice on purpose: every progress step reaches the bar twice.
    connect(this, &HttpDownLoadFile::UpdateBar, dwonDialog, &DwonDialog::UpdateProgressBar);
    connect(this, &HttpDownLoadFile::UpdateBar, dwonDialog, &DwonDialog::UpdateProgressBar);
    connect(updateDialog, &UpdateDialog::getPack, this, &HttpDownLoadFile::GetPackData);
    connect(this, &HttpDownLoadFile::InitCheck, this, &HttpDownLoadFile::CheckProcess);

    checkWatchdog = std::make_unique<CheckWatchdog>(this, [this] { DeleteResource(); });
    QTimer::singleShot(TimeLimits::FirstCheckDelayMs, this, &HttpDownLoadFile::TimerPro);
    // Runs as soon as the worker's thread starts, during the second before the check.
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
    // When a check is started again, the replies of the first one are still under way. Their
    // managers own them, so each old manager becomes a child of the new one.
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
    AnswerLimits::LimitBuffer(answer);
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
    if (!DecodeContent(Reply->rawHeader("Content-Encoding"), AnswerLimits::MaxBytes, answer)) {
        if (EndCheckWithClient())
            qDebug() << "check answer cannot be unpacked, bytes:" << answer.size();
        return;
    }
    if (Global::instance.ParseServiceReply(answer) == Global::Success)
        TakeOffer(ReadServiceOffer(Global::instance));
    else
        EndCheckWithClient();
}

void HttpDownLoadFile::TakeOffer(const ServiceOffer &offer)
{
    if (offer.verdict != ServiceOffer::Verdict::Installed)
        RemoveNotesMarker();
    switch (offer.verdict) {
    case ServiceOffer::Verdict::Installed:
    case ServiceOffer::Verdict::Silenced:
    case ServiceOffer::Verdict::NoUpdate:
        EndCheckWithClient();
        break;
    case ServiceOffer::Verdict::UnusableName:
        if (EndCheckWithClient())
            qDebug() << "package name cannot be used:" << offer.packageName.left(kMaxLoggedName);
        break;
    case ServiceOffer::Verdict::Update:
        PrepareDownload(offer);
        if (checkWatchdog->EndWithPrompt())
            emit Aupdate(Global::instance.update);
        break;
    }
}

void HttpDownLoadFile::RefuseLargeAnswer(QNetworkReply *answer)
{
    if (answer->bytesAvailable() <= AnswerLimits::MaxBytes || !checkWatchdog->EndWithClient())
        return;
    // The rest must not be received while the client is started.
    answer->abort();
    Global::instance.LaunchClient();
    qDebug() << "check answer is too large, bytes: more than" << AnswerLimits::MaxBytes;
}

void HttpDownLoadFile::PrepareDownload(const ServiceOffer &offer)
{
    downloadDir = offer.folder.path;
    ownsDownloadDir = offer.folder.isOwn;
    packagePath = offer.PackagePath();
    QDir().mkpath(downloadDir);
    qInfo() << "update fileName: " << packagePath;
}

void HttpDownLoadFile::GetPackData()
{
    // Windows cannot remove an open file, and an attempt that is still under way may have this one
    // open.
    packageFile.close();
    if (ownsDownloadDir)
        EmptyFolder(downloadDir);
    if (!OpenPackageFile()) {
        QCoreApplication::quit();
        return;
    }
    SendPackageRequest();
    StartTimer(downloadTimerId);
}

bool HttpDownLoadFile::OpenPackageFile()
{
    if (packageFile.fileName().isEmpty())
        packageFile.setFileName(packagePath);

    if (!ownsDownloadDir) {
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
    // An attempt that is still under way must not write into the new file.
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
    // Connected by string: the overloaded error() is the only form that both Qt 5.12 and 5.15 have.
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
    // Damaged data is not written, so the digest of the file will not match.
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
    DeleteNow(reply);
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
    if (global.updateType == ServiceContract::InstallerPackage) {
        global.LaunchProgram(packagePath);
    } else if (global.updateType == ServiceContract::ZipPackage) {
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
    DeleteNow(reply);
    qDebug() << "NetworkReply Get TimerOut";
    ShowError(QStringLiteral("Installation failed. Network exception, please check."),
              QStringLiteral("安装失败，网络异常，请检查网络"));
}

void HttpDownLoadFile::DeleteResource()
{
    DeleteNow(reply);
    DeleteNow(checkManager);
    DeleteNow(downloadManager);
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
