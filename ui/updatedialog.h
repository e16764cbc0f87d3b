// SPDX-License-Identifier: MIT
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
 * postponed, or silenced for the offered version; the forced prompt offers only to update. Owns the
 * progress dialog, which replaces it when the user chooses to update. GUI thread.
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
    /// Requests the download of the package, for the first time or again.
    void getPack();

public slots:
    /// "Later": records the choice never to be prompted and starts the client. Blocks for half a
    /// second.
    void LaterUpdate();

    /**
     * "Update": stops a running client, shows the progress dialog and requests the package when
     * there is enough disk space for it. Blocks while tasklist (up to 30000 ms) and taskkill run.
     */
    void ImmediatelyUpdate();

    /**
     * Fills and shows the prompt: optional for @p mode "1", forced for any other value. With
     * "-immediately" among the arguments, updates at once instead.
     */
    void updateMode(QString mode);

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void SetEnglishTexts(bool optional);
    void SetChineseTexts(bool optional);
    void ShowReleaseNotes();

    /// The user has answered. Clicks and keys that arrive while the answer blocks have no effect;
    /// the slots may still be called.
    void TakeNoMoreInput();

    std::unique_ptr<Ui::UpdateDialog> ui;
    std::unique_ptr<DwonDialog> dwonDialog;
};
