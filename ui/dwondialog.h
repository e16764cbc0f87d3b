// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>

#include <memory>

class NetDialog;

namespace Ui
{
class DwonDialog;
}

/**
 * Shows the download of the package: a line with the percentage, a thin bar, and one button that is
 * "Cancel" during the download and "Retry" after an error. Contains the cancel confirmation as a
 * panel over its lower part. GUI thread; the signals may be emitted on the worker's thread.
 */
class DwonDialog : public QDialog
{
    Q_OBJECT

public:
    explicit DwonDialog(QWidget *parent = nullptr);
    ~DwonDialog() override;

    /// Sets the texts, in the language of the interface, and the size of the package. To be called
    /// before show().
    void SetTexts();

    /// Esc closes the confirmation when it is open, and opens it otherwise.
    void reject() override;

signals:
    /// The user wants to retry, and there is enough disk space for the package.
    void GetPackAgain();

    /// An error to show. @p text is in the language of the interface.
    void ErrSignal(QString text);

public slots:
    /// The button was pressed: asks whether to cancel, or retries.
    void CancleDownload();

    /// Hides the confirmation; the download goes on.
    void CloseCancleDlg();

    /// The user confirmed the cancellation: ends the program.
    void QuitDwonThread();

    /// Shows @p text in red and offers to retry.
    void UpdateErrorState(QString text);

    /// Bytes received so far and in total. With an unknown total (0 or less) the line shows 0 %.
    void UpdateProgressBar(qint64 bytesRead, qint64 totalBytes);

protected:
    /// Asks whether to cancel; the window stays open.
    void closeEvent(QCloseEvent *event) override;

private:
    void AskToCancel();
    void RetryDownload();
    void ResetToNormalState();

    std::unique_ptr<Ui::DwonDialog> ui;
    NetDialog *netDialog;
};
