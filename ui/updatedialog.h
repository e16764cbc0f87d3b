#pragma once

#include <QDialog>

#include <memory>

class DwonDialog;

namespace Ui
{
class UpdateDialog;
}

/**
 * Tells the user that a newer client exists and asks what to do. The optional prompt can be
 * postponed or silenced for the offered version; the forced one offers only to update. Owns the
 * progress dialog and gives way to it when the user chooses to update. GUI thread.
 */
class UpdateDialog : public QDialog
{
    Q_OBJECT

public:
    explicit UpdateDialog(QWidget *parent = nullptr);
    ~UpdateDialog() override;

    /// The progress dialog, owned by this one.
    DwonDialog *ProgressDialog() const { return dwonDialog.get(); }

    /// Esc does what the window's close button does.
    void reject() override;

signals:
    /// The package is to be downloaded, for the first time or again.
    void getPack();

public slots:
    /// "Later": remembers a never-prompt choice and starts the client. Blocks for half a second.
    void LaterUpdate();

    /**
     * "Update": stops a running client, shows the progress dialog and asks for the package when
     * there is room for it. Blocks while tasklist and taskkill run (tasklist up to 30000 ms).
     */
    void ImmediatelyUpdate();

    /**
     * Fills and shows the prompt: optional for @p mode "1", forced for any other. With
     * "-immediately" among the arguments updates at once instead.
     */
    void updateMode(QString mode);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void SetEnglishTexts(bool optional);
    void SetChineseTexts(bool optional);
    void ShowReleaseNotes();

    /// The user has answered: what was clicked and typed while the answer blocks does nothing. The
    /// slots may be called again.
    void TakeNoMoreInput();

    std::unique_ptr<Ui::UpdateDialog> ui;
    std::unique_ptr<DwonDialog> dwonDialog;
};
