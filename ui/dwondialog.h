#pragma once

#include <QDialog>

#include <memory>

class NetDialog;

namespace Ui
{
class DwonDialog;
}

/**
 * Shows the download of the package: a percentage line, a thin bar, and one button that is "Cancel"
 * while all goes well and "Retry" after an error. Holds the cancel confirmation as a panel over its
 * lower part. GUI thread; its signals may be emitted from the worker's thread.
 */
class DwonDialog : public QDialog
{
    Q_OBJECT

public:
    explicit DwonDialog(QWidget *parent = nullptr);
    ~DwonDialog() override;

    /// Fills in the texts in the language shown and the package's size. To be called before show().
    void SetTexts();

    /// Esc closes the confirmation when it is open, and asks for it when it is not.
    void reject() override;

signals:
    /// The user asked to retry, and there is room for the package.
    void GetPackAgain();

    /// An error text to show, ready in the user's language.
    void ErrSignal(QString text);

public slots:
    /// The one button: asks whether to cancel, or retries.
    void CancleDownload();

    /// Hides the confirmation; the download goes on.
    void CloseCancleDlg();

    /// The user confirmed the cancellation: ends the program.
    void QuitDwonThread();

    /// Shows @p text in red and offers to retry.
    void UpdateErrorState(QString text);

    /// Bytes received so far and in all; a total that is not known (0 or less) shows 0 %.
    void UpdateProgressBar(qint64 bytesRead, qint64 totalBytes);

protected:
    /// The window never closes this way: it asks whether to cancel.
    void closeEvent(QCloseEvent *event) override;

private:
    void AskToCancel();
    void RetryDownload();
    void ResetToNormalState();

    std::unique_ptr<Ui::DwonDialog> ui;
    NetDialog *netDialog;
};
