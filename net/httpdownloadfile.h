// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QNetworkReply>
#include <QObject>
#include <QString>

#include <memory>

class CheckWatchdog;
class ContentDecoder;
class QNetworkAccessManager;
class UpdateDialog;
struct ServiceOffer;

/**
 * The update worker: asks the update service for a newer version, announces it to the prompt,
 * downloads the package, verifies it and hands it over to installation.
 *
 * Created on the GUI thread, where its constructor creates the dialogs, and moved to its own thread
 * before that thread starts. All slots except TimerPro() run there. The worker and the dialogs
 * communicate only through queued signals. Any failure before the prompt starts the client
 * unchanged.
 */
class HttpDownLoadFile : public QObject
{
    Q_OBJECT

public:
    /// Creates the hidden dialogs and schedules the check, which starts one second later. GUI
    /// thread.
    explicit HttpDownLoadFile(QObject *parent = nullptr);

    /// Deletes the dialogs. GUI thread, after the worker's thread has ended.
    ~HttpDownLoadFile() override;

signals:
    /// Starts the check.
    void InitCheck();

    /// An update is available; @p updateMode is the service's "update" value.
    void Aupdate(QString updateMode);

    /// Bytes of the package received so far and in total; the total is -1 when it is unknown.
    void UpdateBar(qint64 bytesRead, qint64 totalBytes);

public slots:
    /// Empties the download folder and starts the download from the beginning.
    void GetPackData();

    /// Emits InitCheck(). Runs on the GUI thread.
    void TimerPro();

    /// Ends the run when a running client takes over; otherwise sends the check request.
    void CheckProcess();

    /// The answer to the check request: starts the client, or announces the update.
    void ReplyCheckDataRecv(QNetworkReply *Reply);

    /// Writes the data that has arrived to the package file.
    void ReplyPackDataRecv();

    /// Emits UpdateBar().
    void UpdateDataReadProgress(qint64 bytesRead, qint64 totalBytes);

    /// Verifies a complete download and installs or starts it. Ignores a failed one, which the
    /// stall time-out reports.
    void ReplyFinished();

    /// Logs a download error. The stall time-out reports it to the user.
    void ReplyError(QNetworkReply::NetworkError err);

    /// Releases the network objects and the timers, on the worker's thread as it ends.
    void DeleteResource();

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    void SendCheckRequest();
    void TakeOffer(const ServiceOffer &offer);
    void PrepareDownload(const ServiceOffer &offer);
    bool OpenPackageFile();
    void SendPackageRequest();
    void WritePackage(const QByteArray &received);
    void HandOverPackage();
    void GiveUpCheck();
    void AbandonDownload();
    bool EndCheckWithClient();
    void RefuseLargeAnswer(QNetworkReply *answer);
    void StartTimer(int &timerId);
    void StopTimer(int &timerId);
    void ShowError(const QString &english, const QString &chinese);

    QNetworkAccessManager *checkManager = nullptr;
    QNetworkAccessManager *downloadManager = nullptr;
    QNetworkReply *reply = nullptr; ///< of the check, later of the download
    int checkTimerId = 0;
    int downloadTimerId = 0;
    qint64 lastActivityMs = 0; ///< since the epoch; both time limits count from it
    QFile packageFile;
    QString packagePath; ///< full path of the package file
    QString downloadDir;
    UpdateDialog *updateDialog = nullptr;
    bool ownsDownloadDir = false;                   ///< as DownloadFolder::isOwn
    std::unique_ptr<CheckWatchdog> checkWatchdog;   ///< on the GUI thread
    std::unique_ptr<ContentDecoder> packageDecoder; ///< of the download under way
};
