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

/**
 * The update worker: asks the update service for a newer version, announces it to the prompt,
 * downloads the package, verifies it and hands it over to installation.
 *
 * Built on the GUI thread, where its constructor makes the dialogs, and moved to a thread of its
 * own before that thread starts. There every slot but TimerPro() runs. It meets the dialogs through
 * queued signals only. Whatever fails before the prompt starts the client unchanged.
 */
class HttpDownLoadFile : public QObject
{
    Q_OBJECT

public:
    /// Makes the hidden dialogs and arms the check, which starts a second later. GUI thread.
    explicit HttpDownLoadFile(QObject *parent = nullptr);

    /// Deletes the dialogs. GUI thread, after the worker's thread has ended.
    ~HttpDownLoadFile() override;

signals:
    /// Starts the check.
    void InitCheck();

    /// An update is there; @p updateMode is the service's "update" value.
    void Aupdate(QString updateMode);

    /// Bytes of the package received so far and in all; the latter is -1 when it is not known.
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

    /// Writes what the download has buffered to the package file.
    void ReplyPackDataRecv();

    /// Passes the download's progress on.
    void UpdateDataReadProgress(qint64 bytesRead, qint64 totalBytes);

    /// Verifies a complete download and hands it over. A failed one is left to the stall time-out.
    void ReplyFinished();

    /// Logs a download error. The user learns of it through the stall time-out.
    void ReplyError(QNetworkReply::NetworkError err);

    /// Releases the network objects and the timers, on the worker's thread as it ends.
    void DeleteResource();

protected:
    void timerEvent(QTimerEvent *event) override;

private:
    void SendCheckRequest();
    void PrepareDownload();
    void EmptyDownloadFolder() const;
    bool OpenPackageFile();
    void SendPackageRequest();
    void WritePackage(const QByteArray &received);
    void HandOverPackage();
    void GiveUpCheck();
    void AbandonDownload();
    bool EndCheckWithClient();
    void RefuseLargeAnswer(QNetworkReply *answer);
    void ReleaseReply();
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
    QString packagePath; ///< the announced file name, then the full path
    QString downloadDir;
    UpdateDialog *updateDialog = nullptr;
    std::unique_ptr<CheckWatchdog> checkWatchdog;   ///< on the GUI thread
    std::unique_ptr<ContentDecoder> packageDecoder; ///< of the download under way
};
